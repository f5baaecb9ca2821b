// "oisverify run --sweep-freq LIST": runs the verification once per shake frequency, each point a
// whole session with its own output folder (<out>/<F>hz), then prints SR against frequency as a
// table and writes sweep.svg and sweep.csv into the output folder. Every point's command line is
// checked before the first session runs, so a frequency the frame rate cannot sample is a usage
// error up front. Exit 0 when every point passes, 1 otherwise, 2 for a usage error.
#include <stdio.h>

#include <filesystem>
#include <fstream>

#include "cli/runoptions.h"
#include "commands/commands.h"
#include "figures/sweepfigure.h"
#include "report/runoutput.h"
#include "report/runreport.h"
#include "session/frequencysweep.h"
#include "session/runsession.h"

namespace oisverify
{

namespace
{

int SweepUsageError(const std::string& message)
{
    fprintf(stderr, "oisverify run: %s\n'oisverify run --help' lists the options.\n", message.c_str());
    return 2;
}

// Every point's configuration, read from its own command line; false with a message otherwise.
bool ConfigurePoints(int argc, char** argv, int first, const std::vector<uint32_t>& frequencies,
                     std::vector<SweepPoint>* pPoints, std::string* pError)
{
    for (uint32_t frequencyHz : frequencies)
    {
        std::vector<std::string> words = PointArguments(argc, argv, first, frequencyHz);
        std::vector<char*>       pointArgv;
        for (std::string& word : words)
        {
            pointArgv.push_back(&word[0]);
        }
        Arguments  arguments;
        SweepPoint point;
        point.frequencyHz = frequencyHz;
        if (!arguments.Parse(static_cast<int>(pointArgv.size()), pointArgv.data(), 0, RunOptionSpecs(), pError) ||
            !ParseRunConfig(arguments, &point.config, pError))
        {
            *pError = "at " + std::to_string(frequencyHz) + " Hz: " + *pError;
            return false;
        }
        point.config.outDir = (std::filesystem::path(point.config.outDir) / (std::to_string(frequencyHz) + "hz")).string();
        pPoints->push_back(point);
    }
    return true;
}

void RunPoint(SweepPoint* pPoint)
{
    RunResult       result;
    chihost::Status status = RunVerification(pPoint->config, nullptr, &result);
    if (!status)
    {
        pPoint->error = status.Message();
        return;
    }
    pPoint->ran         = true;
    pPoint->hasSr       = result.events.hasSr;
    pPoint->horSrDb     = result.horSrDb;
    pPoint->verSrDb     = result.verSrDb;
    pPoint->hasTruth    = result.hasTruth;
    pPoint->trueHorSrDb = result.truth.horSrDb;
    pPoint->trueVerSrDb = result.truth.verSrDb;
    const Verdict verdict = DecideVerdict(MakeVerdictInput(pPoint->config, result));
    pPoint->pass          = verdict.pass;
    pPoint->verdict       = verdict.headline;
    std::vector<std::string> written;
    status = WriteRunOutputs(pPoint->config, result, verdict, &written);
    if (!status)
    {
        pPoint->error = status.Message();
    }
}

std::string Db(bool known, float value)
{
    char text[32];
    snprintf(text, sizeof(text), "%8.2f dB", value);
    return known ? text : "          -";
}

void PrintTable(FILE* pOut, const std::vector<SweepPoint>& points, double limitDb)
{
    fprintf(pOut, "\nSR against shake frequency (limit %.2f dB)\n", limitDb);
    fprintf(pOut, "  %7s  %11s  %11s  %11s  %11s  %s\n", "freq", "node hor", "node ver", "true hor", "true ver",
            "verdict");
    for (const SweepPoint& p : points)
    {
        fprintf(pOut, "  %4u Hz  %s  %s  %s  %s  %s\n", p.frequencyHz, Db(p.hasSr, p.horSrDb).c_str(),
                Db(p.hasSr, p.verSrDb).c_str(), Db(p.hasTruth, p.trueHorSrDb).c_str(),
                Db(p.hasTruth, p.trueVerSrDb).c_str(),
                !p.error.empty() ? ("error: " + p.error).c_str() : (p.pass ? "PASS" : "FAIL"));
    }
}

bool WriteSweepFiles(const std::string& outDir, const std::vector<SweepPoint>& points, double limitDb)
{
    std::ofstream svg(std::filesystem::path(outDir) / "sweep.svg");
    svg << SweepSvg(points, limitDb);
    std::ofstream csv(std::filesystem::path(outDir) / "sweep.csv");
    csv << "frequency_hz,node_hor_sr_db,node_ver_sr_db,true_hor_sr_db,true_ver_sr_db,pass\n";
    for (const SweepPoint& p : points)
    {
        char row[160];
        snprintf(row, sizeof(row), "%u,%s,%s,%s,%s,%d\n", p.frequencyHz,
                 p.hasSr ? std::to_string(p.horSrDb).c_str() : "", p.hasSr ? std::to_string(p.verSrDb).c_str() : "",
                 p.hasTruth ? std::to_string(p.trueHorSrDb).c_str() : "",
                 p.hasTruth ? std::to_string(p.trueVerSrDb).c_str() : "", p.pass ? 1 : 0);
        csv << row;
    }
    return svg.good() && csv.good();
}

} // namespace

int RunFrequencySweep(int argc, char** argv, int first, const Arguments& arguments)
{
    for (const char* pName : { "freq", "calibrate", "replay" })
    {
        if (arguments.Has(pName))
        {
            return SweepUsageError("--sweep-freq sets the frequency of each verification; it does not take --" +
                                   std::string(pName));
        }
    }
    std::vector<uint32_t>   frequencies;
    std::vector<SweepPoint> points;
    std::string             error;
    if (!ParseFrequencyList(arguments.Value("sweep-freq"), &frequencies, &error) ||
        !ConfigurePoints(argc, argv, first, frequencies, &points, &error))
    {
        return SweepUsageError(error);
    }
    const RunConfig& base = points.front().config;
    PrintRunHeader(stdout, base);
    // The header shows the first point; the sweep goes on from there.
    printf("  sweep         %zu shake frequencies from %u to %u Hz, one session each\n", points.size(),
           points.front().frequencyHz, points.back().frequencyHz);
    bool allPass = true;
    for (SweepPoint& point : points)
    {
        RunPoint(&point);
        allPass = allPass && point.pass && point.error.empty();
        printf("  %4u Hz  %s\n", point.frequencyHz,
               !point.error.empty() ? point.error.c_str() : (point.pass ? "PASS" : "FAIL"));
        fflush(stdout);
    }
    PrintTable(stdout, points, base.srLimitDb);
    const std::string outDir = std::filesystem::path(base.outDir).parent_path().string();
    if (!WriteSweepFiles(outDir, points, base.srLimitDb))
    {
        fprintf(stderr, "oisverify run: cannot write sweep.svg and sweep.csv into %s\n", outDir.c_str());
        return 1;
    }
    printf("\nOutput in %s\n  sweep.svg   SR against shake frequency, node and truth\n"
           "  sweep.csv   the same as numbers\n  <F>hz/      each frequency's run\n",
           outDir.c_str());
    return allPass ? 0 : 1;
}

} // namespace oisverify
