// The tool's files in the output folder; see runoutput.h.
#include "report/runoutput.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "figures/calibrationfigure.h"
#include "report/calibrationreport.h"
#include "report/htmlsummary.h"
#include "figures/svgfigures.h"

namespace oisverify
{

namespace
{

chihost::Status WriteText(const std::string& path, const std::string& text)
{
    FILE* pFile = fopen(path.c_str(), "wb");
    if (pFile == nullptr)
    {
        return chihost::Status::Error("cannot write " + path + ": " + strerror(errno));
    }
    const bool written = fwrite(text.data(), 1, text.size(), pFile) == text.size();
    const int  err     = errno;
    if (fclose(pFile) != 0 || !written)
    {
        return chihost::Status::Error("cannot write " + path + ": " + strerror(written ? errno : err));
    }
    return chihost::Status::Ok();
}

void AppendCentres(std::string* pRow, const sim::FourCentres& c)
{
    char text[160];
    snprintf(text, sizeof(text), ",%.4f,%.4f,%.4f,%.4f,%.4f,%.4f,%.4f,%.4f", c.up.x, c.up.y, c.down.x, c.down.y,
             c.left.x, c.left.y, c.right.x, c.right.y);
    *pRow += text;
}

} // namespace

std::string PositionsCsv(const RunResult& result)
{
    std::string csv = "frame,ring_slot,algo_return,in_sr_window,up_x,up_y,down_x,down_y,left_x,left_y,right_x,right_y,"
                      "true_up_x,true_up_y,true_down_x,true_down_y,true_left_x,true_left_y,true_right_x,"
                      "true_right_y\n";
    for (const RunFrame& frame : result.frames)
    {
        csv += std::to_string(frame.measured.frameNum) + "," + std::to_string(frame.measured.ringSlot) + "," +
               std::to_string(frame.measured.algoReturn) + "," + (frame.inRing ? "1" : "0");
        AppendCentres(&csv, frame.measured.centres);
        if (frame.hasTruth)
        {
            AppendCentres(&csv, frame.truth);
        }
        else
        {
            csv += ",,,,,,,,";
        }
        csv += "\n";
    }
    return csv;
}

chihost::Status WriteRunOutputs(const RunConfig& config, const RunResult& result, const Verdict& verdict,
                                std::vector<std::string>* pWritten, const CalibrationOutcome* pCalibration)
{
    const std::string summary   = pCalibration ? SummarySvg(config, CalibrationBars(*pCalibration), verdict)
                                               : SummarySvg(config, result, verdict);
    const std::string positions = PositionsSvg(result);
    const std::string calibration = pCalibration ? CalibrationSvg(config, *pCalibration) : "";
    const std::string section =
        pCalibration ? CalibrationSectionHtml(config, result, *pCalibration, calibration) : "";
    std::vector<std::string> links = { "summary.svg", "positions.svg", "positions.csv", "node.log" };
    if (pCalibration)
    {
        links.insert(links.begin() + 2, "calibration.svg");
    }
    links.insert(links.end(), result.nodeFiles.begin(), result.nodeFiles.end());
    std::vector<std::pair<const char*, std::string>> files = {
        { "index.html", SummaryHtml(config, result, verdict, summary, positions, links, section) },
        { "summary.svg", summary },
        { "positions.svg", positions },
        { "positions.csv", PositionsCsv(result) },
        { "node.log", result.logText },
    };
    if (pCalibration)
    {
        files.insert(files.begin() + 3, { "calibration.svg", calibration });
    }
    pWritten->clear();
    for (const auto& file : files)
    {
        chihost::Status status = WriteText(config.outDir + "/" + file.first, file.second);
        if (!status)
        {
            return status;
        }
        pWritten->push_back(file.first);
    }
    return chihost::Status::Ok();
}

} // namespace oisverify
