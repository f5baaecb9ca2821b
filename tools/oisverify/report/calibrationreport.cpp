// Console and page output of a calibration run; see calibrationreport.h.
#include "report/calibrationreport.h"

#include <math.h>
#include <stdlib.h>

#include <utility>

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
// The persist file takes normalised gains from 0.5 to 2.0 and refuses the target that leaves them.
constexpr float  kSmallestPersistedGain = 0.5f;
constexpr float  kLargestPersistedGain  = 2.0f;
// A target within this fraction of the base gain is the base gain (single-precision steps).
constexpr double kSameGain = 1.0e-4;

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
    const MeasuredSr& sr    = outcome.initial;
    const float       limit = static_cast<float>(config.srLimitDb);
    if (outcome.initialPass)
    {
        return Format("PASS  horizontal SR %.2f dB, vertical SR %.2f dB, at or above the limit of %.2f dB: no search "
                      "needed", sr.horSrDb, sr.verSrDb, config.srLimitDb);
    }
    // Name as below only the axes that are; the other one is shown as reaching the limit.
    std::string below, above;
    for (const auto& axis : { std::make_pair("horizontal", sr.horSrDb), std::make_pair("vertical", sr.verSrDb) })
    {
        std::string value, limitText;
        FormatAgainstLimit(axis.second, limit, &value, &limitText);
        std::string& list = (axis.second < limit) ? below : above;
        list += (list.empty() ? "" : ", ") + std::string(axis.first) + " SR " + value;
    }
    std::string limitText, unused;
    FormatAgainstLimit(limit, limit, &limitText, &unused);
    const bool both = above.empty();
    return "FAIL  " + below + (both ? " are" : " is") + " below the limit of " + limitText +
           (both ? "" : " (" + above + " reaches it)") +
           ": the node searches the gyro gains";
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

// The targets of an axis in the node's single precision, up to the upper bound (or, with the
// other axis held, up to the first one the persist file refuses).
std::vector<float> AxisTargets(const RunConfig& config, bool yAxis)
{
    double baseX = 0.0, baseY = 0.0;
    BaseGains(config, &baseX, &baseY);
    const float base  = static_cast<float>(yAxis ? baseY : baseX);
    const float step  = static_cast<float>(config.calibration.stepFraction);
    const float limit = static_cast<float>(config.calibration.limitFraction);
    const float upper = (config.calibration.singleAxis != 0) ? kLargestPersistedGain : base * (1.0f + limit);
    std::vector<float> targets;
    for (int n = 0; n < kMaxDescribedTargets; n++)
    {
        const float target = (base * step) * static_cast<float>(n) + base * (1.0f - limit);
        if (target > upper || (!targets.empty() && target == targets.back()))
        {
            break;
        }
        targets.push_back(target);
    }
    return targets;
}

// What the node's search rules will do with this search that the user may not expect.
std::vector<std::string> SearchWarnings(const RunConfig& config)
{
    std::vector<std::string> warnings;
    double baseX = 0.0, baseY = 0.0;
    BaseGains(config, &baseX, &baseY);
    for (const bool yAxis : { false, true })
    {
        if (AxisHeld(config, yAxis))
        {
            continue;
        }
        const char*              pAxis   = yAxis ? "gyro Y" : "gyro X";
        const double             base    = yAxis ? baseY : baseX;
        const std::vector<float> targets = AxisTargets(config, yAxis);
        bool                     hasBase = false;
        for (float target : targets)
        {
            hasBase = hasBase || fabs(target - base) <= kSameGain * base;
        }
        if (!targets.empty() && !hasBase && config.calibration.singleAxis == 0)
        {
            const std::string range = (targets.size() == 1)
                                          ? Format(" target %.2f leaves", targets.front())
                                          : Format(" targets %.2f to %.2f leave", targets.front(), targets.back());
            warnings.push_back(std::string(pAxis) + range +
                               Format(" out the base gain %.2f", base) +
                               ": the node chooses among the targets only and persists the best of them even when "
                               "the base gain measured better. Way out: a search LIMIT that is a whole number of "
                               "STEPs (e.g. --search 0.05,0.2)");
        }
        if (!targets.empty() && targets.front() < kSmallestPersistedGain)
        {
            warnings.push_back(std::string(pAxis) + Format(" starts at %.2f", targets.front()) +
                               ", below the smallest gain the persist file takes (0.5): expect error -21 at the "
                               "first target");
        }
    }
    if (config.calibration.singleAxis != 0)
    {
        warnings.push_back("with one axis held the node's search does not end by itself: the searched axis runs on "
                           "past the range until the persist file refuses a target above 2.0 (error -21), and the "
                           "module is left on the last target written, up to 2.0. Way out: search both axes, or "
                           "restore the module's gains after the run");
    }
    return warnings;
}

// After the run: what the node's rules left in the persist file, and a selection that measured
// worse than the base gains on an axis.
void PrintPersistNotes(FILE* pOut, const RunConfig& config, const RunResult& result, const CalibrationOutcome& outcome,
                       const Verdict& verdict)
{
    double baseX = 0.0, baseY = 0.0;
    BaseGains(config, &baseX, &baseY);
    if (!verdict.pass && outcome.persistLine >= 0)
    {
        const OISCalData& record = result.calibration.persistLines[static_cast<size_t>(outcome.persistLine)].record;
        fprintf(pOut, "  the node's rule: the persist file keeps gains %s, %s for the module although the run "
                      "failed; restore its gains %.2f, %.2f before the module leaves the station\n",
                record.gainX.c_str(), record.gainY.c_str(), baseX, baseY);
    }
    if (!outcome.hasSelection || !outcome.hasInitial)
    {
        return;
    }
    uint32_t   flag    = 0;
    const bool swapped = EepromSwapFlag(config, &flag) && flag == 1;
    const float baseSrX = swapped ? outcome.initial.verSrDb : outcome.initial.horSrDb;
    const float baseSrY = swapped ? outcome.initial.horSrDb : outcome.initial.verSrDb;
    const GainSelection& s = outcome.selection;
    if (s.srXDb < baseSrX || s.srYDb < baseSrY)
    {
        fprintf(pOut, "  the node's rule: it persisted gains %.2f, %.2f (SR %.2f / %.2f dB per gyro axis), worse "
                      "than the base gains %.2f, %.2f measured (%.2f / %.2f dB): it chooses among its targets only\n",
                s.gainX, s.gainY, s.srXDb, s.srYDb, baseX, baseY, baseSrX, baseSrY);
    }
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
                  base * step) + " (" + std::to_string(last + 1) + (last == 0 ? " target)" : " targets)");
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
    for (const std::string& warning : SearchWarnings(config))
    {
        fprintf(pOut, "  warning       %s\n", warning.c_str());
    }
    fprintf(pOut, "  note          the node persists the best gain pair it measured even when it stays below the "
                  "limit, and a search that ends in an error leaves the last target it wrote in the persist file\n");
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
    PrintVerdictNotes(pOut, verdict);
    fprintf(pOut, "\nPersist file %s\n  %s\n", OISCalibrationFile::kPersistFilePath,
            PersistText(config, result, outcome).c_str());
    PrintPersistNotes(pOut, config, result, outcome, verdict);
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
