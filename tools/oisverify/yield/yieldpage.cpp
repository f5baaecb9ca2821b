// The yield page, CSV and console summary; see yieldpage.h.
#include "yield/yieldpage.h"

#include <filesystem>
#include <fstream>

#include "figures/svgwriter.h"
#include "yield/recordio.h"
#include "yield/yieldfigures.h"

namespace oisverify
{

namespace
{

const char kStyle[] =
    "body{font-family:Helvetica,Arial,sans-serif;color:#1f2328;margin:24px auto;max-width:1200px;padding:0 16px}"
    "h2{margin-top:28px;border-bottom:1px solid #d0d7de;padding-bottom:4px}"
    "table{border-collapse:collapse}td,th{padding:4px 12px;text-align:right;border-bottom:1px solid #eaeef2}"
    "th:first-child,td:first-child{text-align:left}.figures{display:flex;flex-wrap:wrap;gap:8px}"
    "svg{max-width:100%;height:auto}li.note{color:#9a6700}";

std::string Fixed(double value, int decimals, const char* pUnit = "")
{
    char text[48];
    snprintf(text, sizeof(text), "%.*f%s", decimals, value, pUnit);
    return text;
}

std::string Percent(size_t part, size_t whole)
{
    return whole == 0 ? "-" : Fixed(100.0 * static_cast<double>(part) / static_cast<double>(whole), 1, " %");
}

std::string CpkText(const Capability& capability)
{
    return capability.hasCpk ? Fixed(capability.cpk, 2) : "-";
}

std::string SettingName(const std::string& setting)
{
    return setting.empty() ? "no search" : "step,range " + setting;
}

std::string Row(const std::string& name, const std::vector<YieldStats>& settings,
                std::string (*pCell)(const YieldStats&))
{
    std::string row = "<tr><td>" + XmlEscape(name) + "</td>";
    for (const YieldStats& stats : settings)
    {
        row += "<td>" + XmlEscape(pCell(stats)) + "</td>";
    }
    return row + "</tr>\n";
}

std::string SummaryTable(const std::vector<YieldStats>& settings)
{
    std::string html = "<table><tr><th></th>";
    for (const YieldStats& stats : settings)
    {
        html += "<th>" + XmlEscape(SettingName(stats.setting)) + "</th>";
    }
    html += "</tr>\n";
    html += Row("modules", settings, [](const YieldStats& s) { return std::to_string(s.modules); });
    html += Row("SR limit", settings, [](const YieldStats& s) { return Fixed(s.limitDb, 2, " dB"); });
    html += Row("yield before calibration", settings, [](const YieldStats& s) { return FormatYield(s.before); });
    html += Row("yield after calibration", settings, [](const YieldStats& s) { return FormatYield(s.after); });
    html += Row("Cpk horizontal, before / after", settings, [](const YieldStats& s) {
        return CpkText(s.horBefore.capability) + " / " + CpkText(s.horAfter.capability);
    });
    html += Row("Cpk vertical, before / after", settings, [](const YieldStats& s) {
        return CpkText(s.verBefore.capability) + " / " + CpkText(s.verAfter.capability);
    });
    html += Row("mean SR after, hor / ver", settings, [](const YieldStats& s) {
        return Fixed(s.horAfter.capability.mean, 2) + " / " + Fixed(s.verAfter.capability.mean, 2) + " dB";
    });
    html += Row("modules searched", settings, [](const YieldStats& s) { return std::to_string(s.searched); });
    html += Row("selected = step nearest ideal", settings,
                [](const YieldStats& s) { return Percent(s.nearestBoth, s.withNearest); });
    html += Row("mean |selected - ideal| / ideal, X / Y", settings, [](const YieldStats& s) {
        return Fixed(100.0 * s.meanAbsGainErrorX, 2, " %") + " / " + Fixed(100.0 * s.meanAbsGainErrorY, 2, " %");
    });
    html += Row("node - true SR, mean / max |.|", settings, [](const YieldStats& s) {
        return s.withTruth == 0 ? std::string("-")
                                : Fixed(s.meanSrErrorDb, 2) + " / " + Fixed(s.maxAbsSrErrorDb, 2) + " dB";
    });
    return html + "</table>\n";
}

std::string FailureList(const std::vector<std::pair<std::string, size_t>>& failures)
{
    if (failures.empty())
    {
        return "<p>none</p>\n";
    }
    std::string html = "<table>";
    for (const auto& failure : failures)
    {
        html += "<tr><td>" + XmlEscape(failure.first) + "</td><td>" + std::to_string(failure.second) + "</td></tr>";
    }
    return html + "</table>\n";
}

std::string SettingSection(const YieldStats& stats, const std::vector<ModuleRecord>& records, size_t index)
{
    const std::string id   = "setting-" + std::to_string(index);
    std::string       html = "<h2 id=\"" + id + "\">" + XmlEscape(SettingName(stats.setting)) + "</h2>\n";
    html += "<h3>Failures before calibration</h3>\n" + FailureList(stats.failuresBefore);
    html += "<h3>Failures after calibration</h3>\n" + FailureList(stats.failuresAfter);
    html += "<div class=\"figures\">";
    html += SrHistogramSvg(id + "-horizontal", "SR horizontal", stats.horBefore, stats.horAfter, stats.limitDb);
    html += SrHistogramSvg(id + "-vertical", "SR vertical", stats.verBefore, stats.verAfter, stats.limitDb);
    if (stats.searched != 0)
    {
        html += GainScatterSvg(records);
    }
    if (stats.withTruth != 0)
    {
        html += TruthScatterSvg(records);
    }
    return html + "</div>\n";
}

} // namespace

std::string FormatYield(const YieldCount& count)
{
    return Percent(count.passed, count.tested) + " (" + std::to_string(count.passed) + "/" +
           std::to_string(count.tested) + ")";
}

void PrintYieldSummary(FILE* pOut, const std::vector<YieldStats>& settings)
{
    for (const YieldStats& stats : settings)
    {
        fprintf(pOut, "\n%s: %zu modules, SR limit %.2f dB\n", SettingName(stats.setting).c_str(), stats.modules,
                stats.limitDb);
        fprintf(pOut, "  yield before calibration  %s\n", FormatYield(stats.before).c_str());
        fprintf(pOut, "  yield after calibration   %s\n", FormatYield(stats.after).c_str());
        fprintf(pOut, "  Cpk hor %s -> %s, ver %s -> %s\n", CpkText(stats.horBefore.capability).c_str(),
                CpkText(stats.horAfter.capability).c_str(), CpkText(stats.verBefore.capability).c_str(),
                CpkText(stats.verAfter.capability).c_str());
        if (stats.withNearest != 0)
        {
            fprintf(pOut, "  selected gains on the search step nearest ideal: %s (%zu/%zu)\n",
                    Percent(stats.nearestBoth, stats.withNearest).c_str(), stats.nearestBoth, stats.withNearest);
        }
        for (const auto& failure : stats.failuresAfter)
        {
            fprintf(pOut, "  %5zu  %s\n", failure.second, failure.first.c_str());
        }
    }
}

std::string YieldPageHtml(const std::string& title, const std::vector<ModuleRecord>& records,
                          const std::vector<std::string>& notes)
{
    const std::vector<YieldStats> settings = ComputeYieldBySetting(records);
    std::string                   html = "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"/><title>" + XmlEscape(title) +
                       "</title><style>" + kStyle + "</style></head><body>\n<h1>" + XmlEscape(title) + "</h1>\n";
    if (!notes.empty())
    {
        html += "<ul>";
        for (const std::string& note : notes)
        {
            html += "<li class=\"note\">" + XmlEscape(note) + "</li>";
        }
        html += "</ul>\n";
    }
    html += "<h2>Yield</h2>\n" + SummaryTable(settings);
    for (size_t i = 0; i < settings.size(); i++)
    {
        html += SettingSection(settings[i], RecordsOfSetting(records, settings[i].setting), i);
    }
    return html + "<p>Every module: <a href=\"modules.csv\">modules.csv</a></p>\n</body></html>\n";
}

std::string RecordsCsv(const std::vector<ModuleRecord>& records)
{
    std::string csv = RecordCsvHeader() + "\n";
    for (const ModuleRecord& record : records)
    {
        csv += RecordToCsvRow(record) + "\n";
    }
    return csv;
}

bool WriteYieldOutputs(const std::string& outDir, const std::string& title, const std::vector<ModuleRecord>& records,
                       const std::vector<std::string>& notes, std::string* pError)
{
    std::error_code error;
    std::filesystem::create_directories(outDir, error);
    const std::pair<const char*, std::string> files[] = { { "modules.csv", RecordsCsv(records) },
                                                          { "index.html", YieldPageHtml(title, records, notes) } };
    for (const auto& file : files)
    {
        const std::string path = outDir + "/" + file.first;
        std::ofstream     out(path, std::ios::binary | std::ios::trunc);
        out << file.second;
        if (!out.good())
        {
            *pError = "cannot write " + path;
            return false;
        }
    }
    return true;
}

} // namespace oisverify
