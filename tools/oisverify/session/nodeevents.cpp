// The node's log and point-position file as session events; see nodeevents.h.
#include "session/nodeevents.h"

#include <stdio.h>
#include <string.h>

#include <sstream>

namespace oisverify
{

namespace
{

bool StartsWith(const std::string& text, const char* pPrefix)
{
    return text.compare(0, strlen(pPrefix), pPrefix) == 0;
}

// The lines of a measurement's verdict and of the calibration search; false for any other line.
bool NoteSearchLine(const std::string& message, NodeEvents* pEvents)
{
    MeasuredSr    sr;
    GainSelection selection;
    int           count = 0;
    float         gainX = 0.0f, gainY = 0.0f;
    if (StartsWith(message, "Blur is valid ") &&
        sscanf(message.c_str(), "Blur is valid [horSR, verSR] = [%f, %f] [horBlur,verBlur] = [%f, %f]", &sr.horSrDb,
               &sr.verSrDb, &sr.horBlurPx, &sr.verBlurPx) == 4)
    {
        pEvents->verdicts.push_back(sr);
        return true;
    }
    if (StartsWith(message, "Set gain target ") &&
        sscanf(message.c_str(), "Set gain target oisCalibCnt = %d gainXTarget = %f gainYTarget = %f", &count, &gainX,
               &gainY) == 3)
    {
        pEvents->targets++;
        pEvents->measuredBeforeTarget = pEvents->measured;
        pEvents->targetGainX = gainX;
        pEvents->targetGainY = gainY;
        return true;
    }
    if (StartsWith(message, "select Gain write to persist") &&
        sscanf(message.c_str(), "select Gain write to persist, vertorSize = %d Gain[%f, %f] SR[%f, %f]",
               &selection.records, &selection.gainX, &selection.gainY, &selection.srXDb, &selection.srYDb) == 5)
    {
        pEvents->hasSelection = true;
        pEvents->selection    = selection;
        return true;
    }
    return false;
}

} // namespace

void NoteLogLine(char level, const std::string& message, NodeEvents* pEvents)
{
    int   code     = 0;
    float horSr    = 0.0f, horBlur = 0.0f, verSr = 0.0f, verBlur = 0.0f, fps = 0.0f;
    int   duration = 0;
    if (level == 'E')
    {
        pEvents->errors.push_back(message);
    }
    if (NoteSearchLine(message, pEvents))
    {
        return;
    }
    if (sscanf(message.c_str(), "algo return = %d", &code) == 1 && StartsWith(message, "algo return = "))
    {
        if (code == 0)
        {
            pEvents->measured++;
        }
        else
        {
            pEvents->failed++;
            pEvents->lastAlgoReturn = code;
        }
    }
    else if (StartsWith(message, "Calculate SR ") &&
             sscanf(message.c_str(), "Calculate SR horSR = %f horBlur = %f verSR = %f verBlur = %f", &horSr, &horBlur,
                    &verSr, &verBlur) == 4)
    {
        pEvents->hasSr     = true;
        pEvents->horSrDb   = horSr;
        pEvents->verSrDb   = verSr;
        pEvents->horBlurPx = horBlur;
        pEvents->verBlurPx = verBlur;
    }
    else if (StartsWith(message, "algo exec fps ") &&
             sscanf(message.c_str(), "algo exec fps %f duration time = %d ms", &fps, &duration) == 2)
    {
        pEvents->durationMs = duration;
    }
}

void NodeLogTap::Drain()
{
    std::vector<chihost::CapturedLine> lines = m_capture.Lines();
    m_capture.Clear();
    for (const chihost::CapturedLine& line : lines)
    {
        // With the system log on, every line also arrives through the Android log; keep one copy.
        if (line.sink != chihost::CapturedLine::ChiLog)
        {
            continue;
        }
        NoteLogLine(line.level, line.message, &m_events);
        m_text += std::string(1, line.level) + " " + line.function + ": " + line.message + "\n";
    }
}

std::vector<MeasuredFrame> ParsePointPositions(const std::string& text)
{
    std::vector<MeasuredFrame> frames;
    std::istringstream         lines(text);
    std::string                line;
    while (std::getline(lines, line))
    {
        MeasuredFrame     frame;
        sim::FourCentres& c = frame.centres;
        int               frameNum = 0, slot = 0, code = 0;
        if (sscanf(line.c_str(),
                   "frameNum = %d index = %d algoReturn = %d up[%lf,%lf] down[%lf,%lf] left[%lf,%lf] right[%lf,%lf]",
                   &frameNum, &slot, &code, &c.up.x, &c.up.y, &c.down.x, &c.down.y, &c.left.x, &c.left.y, &c.right.x,
                   &c.right.y) == 11 &&
            frameNum >= 0 && slot >= 0)
        {
            frame.frameNum   = static_cast<uint32_t>(frameNum);
            frame.ringSlot   = static_cast<uint32_t>(slot);
            frame.algoReturn = code;
            frames.push_back(frame);
        }
    }
    return frames;
}

} // namespace oisverify
