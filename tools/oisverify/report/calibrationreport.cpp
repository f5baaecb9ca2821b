// Console and page output of a calibration run; see calibrationreport.h.
#include "report/calibrationreport.h"

#include <stdlib.h>

#include "cli/calibrationoptions.h"
#include "chihost/services/calibrationservice.h"
#include "report/persistrecords.h"
#include "report/runreport.h"
#include "figures/svgwriter.h"

namespace oisverify
{

namespace
{

// Enough targets for any search the options allow; the count only words the header.
constexpr int kMaxDescribedTargets = 10000;

std::string Format(const char* pFormat, double a, double b = 0.0, double c = 0.0)
{
    char text[160];
    snprintf(text, sizeof(text), pFormat, a, b, c);
    return text;
}

bool AxisHeld(const RunConfig& config, bool yAxis)
{
    return config.calibration.singleAxis == (yAxis ? 1u : 2u);
}

std::string Swapped(bool swapped)
{
    return swapped ? "gyro X drives the vertical image axis" : "gyro axes not swapped";
}

std::string InitialText(const RunConfig& config, const CalibrationOutcome& outcome)
{
    if (!outcome.hasInitial)
    {
        return "the node reached no verdict at the base gains";
    }
    const MeasuredSr& sr     = outcome.initial;
    const std::string values = Format("horizontal SR %.2f dB, vertical SR %.2f dB", sr.horSrDb, sr.verSrDb);
    return outcome.initialPass ? "PASS  " + values + Format(", at or above the limit of %.2f dB: no search needed",
                                                            config.srLimitDb)
                               : "FAIL  " + values + Format(", below the limit of %.2f dB: the node searches the "
                                                            "gyro gains", config.srLimitDb);
}

// One row of the selection: selected gain, ideal gain, nearest tried gain, the node's SR with the
// selection and the simulator's.
std::string SelectionRow(const char* pAxis, double selected, double ideal, double nearest, double srDb,
                         bool hasTrueSr, double trueSrDb)
{
    char text[160];
    snprintf(text, sizeof(text), "  %-8s %10.2f %9.2f %14.2f %9.2f dB", pAxis, selected, ideal, nearest, srDb);
    std::string row = text;
    if (hasTrueSr)
    {
        snprintf(text, sizeof(text), " %9.2f dB", trueSrDb);
        row += text;
    }
    return row + "\n";
}

std::string PersistText(const RunConfig& config, const RunResult& result, const CalibrationOutcome& outcome)
{
    const std::vector<OISPersistLine>& lines = result.calibration.persistLines;
    if (!result.calibration.persistRead)
    {
        return "the node wrote no persist file";
    }
    if (outcome.persistLine < 0)
    {
        return "no record of fuse ID \"" + ShownField(config.calibration.fuseId) + "\" among " +
               std::to_string(lines.size()) + " lines";
    }
    const size_t index = static_cast<size_t>(outcome.persistLine);
    return DescribePersistLine(index + 1, lines[index]);
}

void PrintSearch(FILE* pOut, const RunConfig& config, const CalibrationOutcome& outcome)
{
    fprintf(pOut, "\nGain search: %zu gain pairs measured, SR per gyro axis, blur per image axis (%s)\n",
            outcome.records.size(), Swapped(config.scenario.ois.swapGyroAxes).c_str());
    fprintf(pOut, "%s  * the gain the node selected for that axis\n", SearchTableText(outcome).c_str());
    if (!outcome.hasSelection)
    {
        return;
    }
    const GainSelection& s = outcome.selection;
    fprintf(pOut, "\nSelected gains, written to the persist file\n  %-8s %10s %9s %14s %12s%s\n", "", "selected",
            "ideal", "nearest step", "node SR", outcome.hasTrueSr ? "      true SR" : "");
    fprintf(pOut, "%s", SelectionRow("gyro X", s.gainX, outcome.idealX, outcome.nearestX, s.srXDb,
                                     outcome.hasTrueSr, outcome.trueSrXDb).c_str());
    fprintf(pOut, "%s", SelectionRow("gyro Y", s.gainY, outcome.idealY, outcome.nearestY, s.srYDb,
                                     outcome.hasTrueSr, outcome.trueSrYDb).c_str());
    const float limit = static_cast<float>(config.srLimitDb);
    if (outcome.hasTrueSr && (outcome.trueSrXDb < limit || outcome.trueSrYDb < limit) && s.srXDb >= limit &&
        s.srYDb >= limit)
    {
        fprintf(pOut, "  the simulator's true SR on the selected gains is below the limit where the node's reached "
                      "it: check that the EEPROM axis flag matches the module\n");
    }
    if (outcome.hasNearest && (s.gainX != static_cast<float>(outcome.nearestX) ||
                               s.gainY != static_cast<float>(outcome.nearestY)))
    {
        fprintf(pOut, "  the selection is not the search step nearest the ideal gain on every axis\n");
    }
}

std::string Cell(const std::string& text, bool mark)
{
    return std::string(mark ? "<td class=\"good\">" : "<td>") + XmlEscape(text) + "</td>";
}

// The search table of the page: the node's selection per axis highlighted.
std::string SearchTableHtml(const CalibrationOutcome& outcome)
{
    std::string html = "<table class=\"search\">\n<tr><th>#</th><th>gain X</th><th>gain Y</th><th>SR X</th>"
                       "<th>SR Y</th><th>blur H</th><th>blur V</th></tr>\n";
    for (size_t i = 0; i < outcome.records.size(); i++)
    {
        const SearchRecord& r = outcome.records[i];
        const bool          x = outcome.selectedX == static_cast<int>(i);
        const bool          y = outcome.selectedY == static_cast<int>(i);
        html += "<tr>" + Cell(std::to_string(r.index), false) + Cell(Format("%.2f", r.gainX), x) +
                Cell(Format("%.2f", r.gainY), y) + Cell(Format("%.2f dB", r.srXDb), x) +
                Cell(Format("%.2f dB", r.srYDb), y) + Cell(Format("%.2f px", r.horBlurPx), false) +
                Cell(Format("%.2f px", r.verBlurPx), false) + "</tr>\n";
    }
    return html + "</table>\n";
}

} // namespace

// The targets in the node's single precision: base x step x n + base x (1 - limit), up to the
// last one not above base x (1 + limit).
std::string DescribeAxisSearch(const RunConfig& config, bool yAxis)
{
    double baseX = 0.0, baseY = 0.0;
    BaseGains(config, &baseX, &baseY);
    const float base = static_cast<float>(yAxis ? baseY : baseX);
    if (AxisHeld(config, yAxis))
    {
        return Format("held at %.2f", base);
    }
    const float step   = static_cast<float>(config.calibration.stepFraction);
    const float limit  = static_cast<float>(config.calibration.limitFraction);
    const float lowest = base * (1.0f - limit);
    int         last   = 0;
    while (last < kMaxDescribedTargets && (base * step) * static_cast<float>(last + 1) + lowest <= base * (1.0f + limit))
    {
        last++;
    }
    if (config.calibration.singleAxis != 0)
    {
        return Format("from %.2f up in steps of %.2f", lowest, base * step);
    }
    return Format("%.2f to %.2f in steps of %.2f", lowest, (base * step) * static_cast<float>(last) + lowest,
                  base * step) + " (" + std::to_string(last + 1) + " targets)";
}

void PrintCalibrationHeader(FILE* pOut, const RunConfig& config)
{
    const CalibrationConfig& calibration = config.calibration;
    const bool               swapped     = config.scenario.ois.swapGyroAxes;
    uint32_t                 flag        = 0;
    const bool               hasFlag     = EepromSwapFlag(config, &flag);
    fprintf(pOut, "  search        gyro X %s, gyro Y %s; %u settle frames per target\n",
            DescribeAxisSearch(config, false).c_str(), DescribeAxisSearch(config, true).c_str(),
            calibration.settleFrames);
    fprintf(pOut, "  module        fuse ID %s (%s=%s), %s (EEPROM %s=%u)\n",
            calibration.fuseId.empty() ? "none" : ShownField(calibration.fuseId).c_str(), kFuseIdProperty,
            ShownField(EffectiveProperty(config.device.root.buildProperties, kFuseIdProperty)).c_str(),
            Swapped(swapped).c_str(), kAxisSwapEepromEntry, flag);
    fprintf(pOut, "  service       calibration service on the abstract socket @%s\n",
            calibration.socketName.empty() ? chihost::kCalibrationServiceSocketName : calibration.socketName.c_str());
    if (hasFlag && (flag == 1) != swapped)
    {
        fprintf(pOut, "  note          the EEPROM flag and the module disagree on the axis swap: the node pairs each "
                      "gain with the other axis's SR\n");
    }
    if (calibration.fuseId.empty())
    {
        fprintf(pOut, "  note          the fuse-ID property holds no ID the node can read: expect error -21\n");
    }
    if (calibration.singleAxis != 0)
    {
        fprintf(pOut, "  note          with one axis held the search does not end by itself: the targets run on "
                      "until the persist file refuses one (error -21)\n");
    }
    fflush(pOut);
}

std::string SearchTableText(const CalibrationOutcome& outcome)
{
    std::string table = "      #  gain X  gain Y        SR X        SR Y     blur H     blur V\n";
    for (size_t i = 0; i < outcome.records.size(); i++)
    {
        const SearchRecord& r = outcome.records[i];
        char                row[160];
        snprintf(row, sizeof(row), "  %5d  %6.2f  %6.2f  %7.2f dB%c %7.2f dB%c %7.2f px %7.2f px\n", r.index, r.gainX,
                 r.gainY, r.srXDb, (outcome.selectedX == static_cast<int>(i)) ? '*' : ' ', r.srYDb,
                 (outcome.selectedY == static_cast<int>(i)) ? '*' : ' ', r.horBlurPx, r.verBlurPx);
        table += row;
    }
    return table;
}

void PrintCalibrationReport(FILE* pOut, const RunConfig& config, const RunResult& result,
                            const CalibrationOutcome& outcome, const Verdict& verdict, bool colour)
{
    double baseX = 0.0, baseY = 0.0;
    BaseGains(config, &baseX, &baseY);
    fprintf(pOut, "\nVerification at the base gains %.2f, %.2f\n  %s\n", baseX, baseY,
            InitialText(config, outcome).c_str());
    if (outcome.searched)
    {
        PrintSearch(pOut, config, outcome);
    }
    PrintVerdictLine(pOut, verdict, colour);
    fprintf(pOut, "\nPersist file %s\n  %s\n", OISCalibrationFile::kPersistFilePath,
            PersistText(config, result, outcome).c_str());
    PrintSessionLine(pOut, config, result);
    fprintf(pOut, "  calibration service: %llu reloads, %zu gain pairs applied to the module\n",
            static_cast<unsigned long long>(result.calibration.reloads), result.calibration.applied.size());
}

std::vector<SrBar> CalibrationBars(const CalibrationOutcome& outcome)
{
    if (outcome.hasSelection)
    {
        return { { "gyro-x", "gyro X", outcome.selection.srXDb, false, 0.0f },
                 { "gyro-y", "gyro Y", outcome.selection.srYDb, false, 0.0f } };
    }
    if (outcome.hasInitial)
    {
        return { { "horizontal", "horizontal", outcome.initial.horSrDb, false, 0.0f },
                 { "vertical", "vertical", outcome.initial.verSrDb, false, 0.0f } };
    }
    return {};
}

std::string CalibrationSectionHtml(const RunConfig& config, const RunResult& result,
                                   const CalibrationOutcome& outcome, const std::string& calibrationSvg)
{
    std::string html = "<h2>Calibration</h2>\n<p>Verification at the base gains: " +
                       XmlEscape(InitialText(config, outcome)) + "</p>\n";
    if (outcome.searched)
    {
        html += SearchTableHtml(outcome);
    }
    if (outcome.hasSelection)
    {
        const GainSelection& s   = outcome.selection;
        const auto           row = [&](const char* pAxis, float gain, double ideal, double nearest, float srDb,
                                       double trueSrDb) {
            return "<tr>" + Cell(pAxis, false) + Cell(Format("%.2f", gain), false) + Cell(Format("%.2f", ideal), false) +
                   Cell(Format("%.2f", nearest), false) + Cell(Format("%.2f dB", srDb), srDb >= config.srLimitDb) +
                   (outcome.hasTrueSr ? Cell(Format("%.2f dB", trueSrDb), false) : "") + "</tr>\n";
        };
        html += "<table class=\"selection\">\n<tr><th>axis</th><th>selected</th><th>ideal</th><th>nearest step</th>"
                "<th>node SR</th>" + std::string(outcome.hasTrueSr ? "<th>true SR</th>" : "") + "</tr>\n" +
                row("gyro X", s.gainX, outcome.idealX, outcome.nearestX, s.srXDb, outcome.trueSrXDb) +
                row("gyro Y", s.gainY, outcome.idealY, outcome.nearestY, s.srYDb, outcome.trueSrYDb) + "</table>\n";
    }
    html += "<figure>\n" + calibrationSvg + "</figure>\n";
    return html + "<p>Persist file <code>" + XmlEscape(OISCalibrationFile::kPersistFilePath) + "</code>: <code>" +
           XmlEscape(PersistText(config, result, outcome)) + "</code></p>\n";
}

} // namespace oisverify
