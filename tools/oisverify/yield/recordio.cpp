// Module records as CSV; see recordio.h.
#include "yield/recordio.h"

#include <stdio.h>

namespace oisverify
{

namespace
{

std::string CsvNumber(bool has, double value, const char* pFormat = "%.4f")
{
    if (!has)
    {
        return "";
    }
    char text[48];
    snprintf(text, sizeof(text), pFormat, value);
    return text;
}

} // namespace

std::string CsvField(const std::string& text)
{
    if (text.find_first_of(",\"\r\n") == std::string::npos)
    {
        return text;
    }
    std::string quoted = "\"";
    for (char c : text)
    {
        quoted += (c == '"') ? std::string("\"\"") : std::string(1, c);
    }
    return quoted + "\"";
}

std::string RecordCsvHeader()
{
    return "module,fuse_id,setting,source,state,limit_db,pass_before,pass_after,before_hor_sr_db,before_ver_sr_db,"
           "hor_sr_db,ver_sr_db,true_hor_sr_db,true_ver_sr_db,selected_gain_x,selected_gain_y,ideal_gain_x,"
           "ideal_gain_y,nearest_step_x,nearest_step_y,selected_is_nearest,reason,render_s,node_s,emulator_s,total_s";
}

std::string RecordToCsvRow(const ModuleRecord& r)
{
    const bool               timed  = r.totalS > 0.0;
    const std::vector<std::string> fields = {
        CsvField(r.id), CsvField(r.fuseId), CsvField(r.setting), CsvField(r.source),
        r.finished ? std::to_string(r.state) : "", CsvNumber(true, r.limitDb, "%.2f"),
        r.passBefore ? "1" : "0", r.passAfter ? "1" : "0",
        CsvNumber(r.hasBefore, r.beforeHorDb), CsvNumber(r.hasBefore, r.beforeVerDb),
        CsvNumber(r.hasAfter, r.afterHorDb), CsvNumber(r.hasAfter, r.afterVerDb),
        CsvNumber(r.hasTruth, r.trueHorDb), CsvNumber(r.hasTruth, r.trueVerDb),
        CsvNumber(r.hasSelection, r.selectedX, "%.6f"), CsvNumber(r.hasSelection, r.selectedY, "%.6f"),
        CsvNumber(r.hasIdeal, r.idealX, "%.6f"), CsvNumber(r.hasIdeal, r.idealY, "%.6f"),
        CsvNumber(r.hasNearest, r.nearestX, "%.6f"), CsvNumber(r.hasNearest, r.nearestY, "%.6f"),
        (r.hasSelection && r.hasNearest) ? (SelectedNearestStep(r) ? "1" : "0") : "",
        CsvField(r.reason),
        CsvNumber(timed, r.renderS, "%.3f"), CsvNumber(timed, r.nodeS, "%.3f"),
        CsvNumber(timed, r.emulatorS, "%.3f"), CsvNumber(timed, r.totalS, "%.3f"),
    };
    std::string row;
    for (size_t i = 0; i < fields.size(); i++)
    {
        row += (i == 0 ? "" : ",") + fields[i];
    }
    return row;
}

} // namespace oisverify
