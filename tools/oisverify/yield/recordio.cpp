// Module records as JSON lines and CSV; see recordio.h.
#include "yield/recordio.h"

#include <stdio.h>

#include <cjson/cJSON.h>

namespace oisverify
{

namespace
{

std::string JsonString(const std::string& text)
{
    std::string out = "\"";
    for (unsigned char c : text)
    {
        if (c == '"' || c == '\\')
        {
            out += '\\';
            out += static_cast<char>(c);
        }
        else if (c < 0x20)
        {
            char escape[8];
            snprintf(escape, sizeof(escape), "\\u%04x", c);
            out += escape;
        }
        else
        {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

class LineWriter
{
public:
    void Text(const char* pKey, const std::string& value) { Key(pKey) += JsonString(value); }
    void Flag(const char* pKey, bool value) { Key(pKey) += value ? "true" : "false"; }
    void Whole(const char* pKey, long long value) { Key(pKey) += std::to_string(value); }
    void Number(const char* pKey, double value, const char* pFormat = "%.4f")
    {
        char text[48];
        snprintf(text, sizeof(text), pFormat, value);
        Key(pKey) += text;
    }
    std::string Finish() { return m_line + "}"; }

private:
    std::string& Key(const char* pKey)
    {
        m_line += (m_line.size() > 1 ? ",\"" : "\"");
        m_line += pKey;
        m_line += "\":";
        return m_line;
    }
    std::string m_line = "{";
};

bool ReadText(const cJSON* pObject, const char* pKey, std::string* pValue)
{
    const cJSON* pItem = cJSON_GetObjectItemCaseSensitive(pObject, pKey);
    if (cJSON_IsString(pItem))
    {
        *pValue = pItem->valuestring;
    }
    return pItem == nullptr || cJSON_IsString(pItem);
}

bool ReadFlag(const cJSON* pObject, const char* pKey, bool* pValue)
{
    const cJSON* pItem = cJSON_GetObjectItemCaseSensitive(pObject, pKey);
    if (cJSON_IsBool(pItem))
    {
        *pValue = cJSON_IsTrue(pItem);
    }
    return pItem == nullptr || cJSON_IsBool(pItem);
}

// A number that may be absent; *pHas tells whether it was there.
bool ReadNumber(const cJSON* pObject, const char* pKey, double* pValue, bool* pHas = nullptr)
{
    const cJSON* pItem = cJSON_GetObjectItemCaseSensitive(pObject, pKey);
    if (cJSON_IsNumber(pItem))
    {
        *pValue = pItem->valuedouble;
    }
    if (pHas != nullptr)
    {
        *pHas = cJSON_IsNumber(pItem);
    }
    return pItem == nullptr || cJSON_IsNumber(pItem);
}

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

std::string RecordToJsonLine(const ModuleRecord& r)
{
    LineWriter line;
    line.Text("module", r.id);
    line.Text("fuseId", r.fuseId);
    line.Text("setting", r.setting);
    line.Text("source", r.source);
    line.Flag("finished", r.finished);
    line.Whole("state", r.state);
    line.Number("limitDb", r.limitDb);
    line.Flag("passBefore", r.passBefore);
    line.Flag("passAfter", r.passAfter);
    line.Flag("calibrated", r.calibrated);
    line.Flag("searched", r.searched);
    if (r.hasBefore)
    {
        line.Number("beforeHorSrDb", r.beforeHorDb);
        line.Number("beforeVerSrDb", r.beforeVerDb);
    }
    if (r.hasAfter)
    {
        line.Number("horSrDb", r.afterHorDb);
        line.Number("verSrDb", r.afterVerDb);
    }
    if (r.hasTruth)
    {
        line.Number("trueHorSrDb", r.trueHorDb);
        line.Number("trueVerSrDb", r.trueVerDb);
    }
    if (r.hasSelection)
    {
        line.Number("selectedGainX", r.selectedX, "%.6f");
        line.Number("selectedGainY", r.selectedY, "%.6f");
    }
    if (r.hasIdeal)
    {
        line.Number("idealGainX", r.idealX, "%.6f");
        line.Number("idealGainY", r.idealY, "%.6f");
    }
    if (r.hasNearest)
    {
        line.Number("nearestStepX", r.nearestX, "%.6f");
        line.Number("nearestStepY", r.nearestY, "%.6f");
    }
    line.Text("reason", r.reason);
    if (r.totalS > 0.0)
    {
        line.Number("renderS", r.renderS, "%.3f");
        line.Number("nodeS", r.nodeS, "%.3f");
        line.Number("emulatorS", r.emulatorS, "%.3f");
        line.Number("totalS", r.totalS, "%.3f");
    }
    return line.Finish();
}

bool RecordFromJsonLine(const std::string& line, ModuleRecord* pRecord)
{
    cJSON* pRoot = cJSON_ParseWithLength(line.c_str(), line.size());
    if (!cJSON_IsObject(pRoot) || !cJSON_IsString(cJSON_GetObjectItemCaseSensitive(pRoot, "module")))
    {
        cJSON_Delete(pRoot);
        return false;
    }
    ModuleRecord r;
    double       state = 0.0;
    bool         ok    = ReadText(pRoot, "module", &r.id) && ReadText(pRoot, "fuseId", &r.fuseId) &&
              ReadText(pRoot, "setting", &r.setting) && ReadText(pRoot, "source", &r.source) &&
              ReadFlag(pRoot, "finished", &r.finished) && ReadNumber(pRoot, "state", &state) &&
              ReadNumber(pRoot, "limitDb", &r.limitDb) && ReadFlag(pRoot, "passBefore", &r.passBefore) &&
              ReadFlag(pRoot, "passAfter", &r.passAfter) && ReadFlag(pRoot, "calibrated", &r.calibrated) &&
              ReadFlag(pRoot, "searched", &r.searched) && ReadText(pRoot, "reason", &r.reason);
    bool hasX = false, hasY = false;
    ok = ok && ReadNumber(pRoot, "beforeHorSrDb", &r.beforeHorDb, &r.hasBefore) &&
         ReadNumber(pRoot, "beforeVerSrDb", &r.beforeVerDb, &hasY) && hasY == r.hasBefore;
    ok = ok && ReadNumber(pRoot, "horSrDb", &r.afterHorDb, &r.hasAfter) &&
         ReadNumber(pRoot, "verSrDb", &r.afterVerDb, &hasY) && hasY == r.hasAfter;
    ok = ok && ReadNumber(pRoot, "trueHorSrDb", &r.trueHorDb, &r.hasTruth) &&
         ReadNumber(pRoot, "trueVerSrDb", &r.trueVerDb, &hasY) && hasY == r.hasTruth;
    ok = ok && ReadNumber(pRoot, "selectedGainX", &r.selectedX, &r.hasSelection) &&
         ReadNumber(pRoot, "selectedGainY", &r.selectedY, &hasY) && hasY == r.hasSelection;
    ok = ok && ReadNumber(pRoot, "idealGainX", &r.idealX, &r.hasIdeal) &&
         ReadNumber(pRoot, "idealGainY", &r.idealY, &hasY) && hasY == r.hasIdeal;
    ok = ok && ReadNumber(pRoot, "nearestStepX", &r.nearestX, &r.hasNearest) &&
         ReadNumber(pRoot, "nearestStepY", &r.nearestY, &hasY) && hasY == r.hasNearest;
    ok = ok && ReadNumber(pRoot, "renderS", &r.renderS, &hasX) && ReadNumber(pRoot, "nodeS", &r.nodeS, &hasX) &&
         ReadNumber(pRoot, "emulatorS", &r.emulatorS, &hasX) && ReadNumber(pRoot, "totalS", &r.totalS, &hasX);
    cJSON_Delete(pRoot);
    r.state = static_cast<int32_t>(state);
    if (ok)
    {
        *pRecord = r;
    }
    return ok;
}

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
