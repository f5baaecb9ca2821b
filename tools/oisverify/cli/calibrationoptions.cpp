// Options of "oisverify run --calibrate"; see calibrationoptions.h.
#include "cli/calibrationoptions.h"

#include <stdio.h>
#include <stdlib.h>

#include "closedloopmodule.h"
#include "oiscalibrationfile.h"

namespace oisverify
{

const char* const kDefaultFuseId       = "ZKSIM0001";
const char* const kFuseIdProperty      = "vendor.camera.sensor.w.fuseID";
const char* const kCalibrationSetting  = "enableOISGyroGainCalibration";
const char* const kAxisSwapEepromEntry = "OISGyroGainAndSRMatch";

namespace
{

// Options that shape the search; --fuse-id names the module the search writes for.
const char* const kSearchOptions[] = { "search", "single-axis", "wait" };

constexpr double   kMinStepFraction  = 0.001;
constexpr double   kMaxStepFraction  = 1.0;
constexpr double   kMaxLimitFraction = 0.9; // a lower bound of base x 0.1 at most
constexpr uint64_t kMaxSettleFrames  = 1000;
constexpr uint64_t kMaxSocketWaitS   = 3600;
constexpr uint32_t kMillisecondsPerSecond = 1000;
// The fuse ID goes into a property value of at most 91 characters after an 8-character prefix,
// and into a comma-separated record.
constexpr size_t kMaxFuseIdLength = 64;

// A field the node reads with stof (or stoi): missing counts as 0, anything but a number is
// refused here, since the node would not survive it.
bool NumberField(const std::vector<std::string>& fields, size_t index, const char* pMeaning, double* pValue,
                 std::string* pError)
{
    *pValue = 0.0;
    if (fields.size() <= index)
    {
        return true;
    }
    if (!OptionReader::ToNumber(fields[index], -1.0e6, 1.0e6, pValue))
    {
        *pError = std::string(kGainCalibrateProperty) + " field " + std::to_string(index) + " (" + pMeaning +
                  ") is '" + fields[index] + "', not a number";
        return false;
    }
    return true;
}

std::vector<std::string> SplitColons(const std::string& text)
{
    // The node's split: a trailing part after the last colon counts only when not empty.
    std::vector<std::string> fields(1);
    for (char c : text)
    {
        (c == ':') ? fields.push_back("") : fields.back().push_back(c);
    }
    if (fields.back().empty())
    {
        fields.pop_back();
    }
    return fields;
}

bool ValidFuseId(const std::string& id)
{
    if (id.empty() || id.size() > kMaxFuseIdLength)
    {
        return false;
    }
    for (char c : id)
    {
        const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
                           c == '_' || c == '.';
        if (!plain)
        {
            return false;
        }
    }
    return true;
}

bool CheckConflicts(OptionReader& reader, const chihost::NameValueList& userProps, const RunConfig& config)
{
    if (config.source == FrameSource::Replay)
    {
        return reader.Fail("--calibrate closes the loop through the simulated module; recorded frames (--replay) "
                           "do not change with the gains it tries");
    }
    if (config.source == FrameSource::DebugImages)
    {
        return reader.Fail("--calibrate closes the loop through the simulated module; in debug mode the node "
                           "measures its debug images, which no gain moves");
    }
    if (reader.Has("ois-off"))
    {
        return reader.Fail("--calibrate searches the OIS gyro gains; with --ois-off no gain acts");
    }
    for (const char* pName : kSearchOptions)
    {
        if (reader.Has(pName) && HasEntry(userProps, kGainCalibrateProperty))
        {
            return reader.Fail("--" + std::string(pName) + " sets " + kGainCalibrateProperty +
                               ", which --prop sets too; give one or the other");
        }
    }
    if (reader.Has("fuse-id") && HasEntry(userProps, kFuseIdProperty))
    {
        return reader.Fail(std::string("--fuse-id sets ") + kFuseIdProperty +
                           ", which --prop sets too; give one or the other");
    }
    if (HasEntry(config.device.root.overrideSettings, kCalibrationSetting))
    {
        return reader.Fail(std::string("--calibrate sets ") + kCalibrationSetting +
                           "=TRUE itself; leave out the --setting");
    }
    return true;
}

// The search from the user's property, read as the node reads it.
bool ReadSearchProperty(OptionReader& reader, const chihost::NameValueList& userProps, CalibrationConfig* pSearch)
{
    std::string error;
    int32_t     roleId = 0;
    if (!ParseGainCalibrate(EffectiveProperty(userProps, kGainCalibrateProperty), pSearch, &roleId, &error))
    {
        return reader.Fail(error);
    }
    if (roleId != 0)
    {
        return reader.Fail(std::string(kGainCalibrateProperty) + " names camera role " + std::to_string(roleId) +
                           "; the simulated module is role 0");
    }
    if (!(pSearch->stepFraction > 0.0))
    {
        char step[32];
        snprintf(step, sizeof(step), "%g", pSearch->stepFraction);
        return reader.Fail(std::string(kGainCalibrateProperty) + " sets a gain step of " + step +
                           " (field 3): the node's search would never end");
    }
    return true;
}

bool ReadSearchOptions(OptionReader& reader, CalibrationConfig* pSearch)
{
    if (reader.Has("search"))
    {
        const std::string text  = reader.Value("search");
        const size_t      comma = text.find(',');
        if (comma == std::string::npos ||
            !OptionReader::ToNumber(text.substr(0, comma), kMinStepFraction, kMaxStepFraction, &pSearch->stepFraction) ||
            !OptionReader::ToNumber(text.substr(comma + 1), 0.0, kMaxLimitFraction, &pSearch->limitFraction))
        {
            char range[128];
            snprintf(range, sizeof(range), "STEP from %g to %g and LIMIT from 0 to %g", kMinStepFraction,
                     kMaxStepFraction, kMaxLimitFraction);
            return reader.Fail("--search needs STEP,LIMIT as fractions of the base gain (" + std::string(range) +
                               "), e.g. 0.05,0.2, got '" + text + "'");
        }
    }
    if (reader.Has("single-axis"))
    {
        const std::string axis = reader.Value("single-axis");
        if (axis != "x" && axis != "y")
        {
            return reader.Fail("--single-axis needs x or y (the gyro axis to search), got '" + axis + "'");
        }
        pSearch->singleAxis = (axis == "x") ? 1 : 2;
    }
    return reader.Whole32("wait", 0, kMaxSettleFrames, &pSearch->settleFrames);
}

// The module's fuse ID: from the user's property (as the node will read it) or --fuse-id.
bool ReadFuseId(OptionReader& reader, const chihost::NameValueList& userProps, CalibrationConfig* pCalibration)
{
    if (HasEntry(userProps, kFuseIdProperty))
    {
        // A value the node cannot read leaves the module without an ID; the run shows what follows.
        std::string id;
        pCalibration->fuseId =
            OISCalibrationFile::ParseFuseIdValue(EffectiveProperty(userProps, kFuseIdProperty), &id) ? id : "";
        return true;
    }
    pCalibration->fuseId = reader.Has("fuse-id") ? reader.Value("fuse-id") : kDefaultFuseId;
    if (!ValidFuseId(pCalibration->fuseId))
    {
        return reader.Fail("--fuse-id needs 1 to 64 letters, digits, '-', '_' or '.', got '" + pCalibration->fuseId +
                           "'");
    }
    return true;
}

} // namespace

std::vector<OptionSpec> CalibrationOptionSpecs()
{
    return {
        { "calibrate", false, false, "", "below the limit, search the gyro gains in a closed loop and persist the best" },
        { "fuse-id", true, false, "ID", "fuse ID of the simulated module (default ZKSIM0001)" },
        { "swap-axes", false, false, "", "the module's gyro X drives the vertical image axis (EEPROM flag 1)" },
        { "search", true, false, "STEP,LIMIT", "gain step and range as fractions of the base gain (default 0.05,0.2)" },
        { "single-axis", true, false, "x|y", "search one gyro axis, holding the other at its base gain" },
        { "wait", true, false, "N", "frames a new gain settles before the node measures (default 10)" },
        { "service-wait", true, false, "S", "seconds to wait while another process holds the service's socket (default 10)" },
    };
}

std::string ComposeGainCalibrate(double srLimitDb, const CalibrationConfig& calibration)
{
    char text[128];
    snprintf(text, sizeof(text), "0:%u:%g:%g:%g:%u", calibration.singleAxis, srLimitDb, calibration.stepFraction,
             calibration.limitFraction, calibration.settleFrames);
    return text;
}

bool ParseGainCalibrate(const std::string& text, CalibrationConfig* pCalibration, int32_t* pRoleId,
                        std::string* pError)
{
    const std::vector<std::string> fields = SplitColons(text);
    double role = 0.0, axis = 0.0, step = 0.0, limit = 0.0, settle = 0.0;
    if (!NumberField(fields, 0, "camera role", &role, pError) || !NumberField(fields, 1, "single axis", &axis, pError) ||
        !NumberField(fields, 3, "gain step", &step, pError) || !NumberField(fields, 4, "gain limit", &limit, pError) ||
        !NumberField(fields, 5, "settle frames", &settle, pError))
    {
        return false;
    }
    if (role != static_cast<int32_t>(role) || axis != static_cast<int32_t>(axis))
    {
        *pError = std::string(kGainCalibrateProperty) + " fields 0 and 1 (camera role, single axis) are whole numbers";
        return false;
    }
    *pRoleId                    = static_cast<int32_t>(role);
    pCalibration->singleAxis    = (axis == 1.0 || axis == 2.0) ? static_cast<uint32_t>(axis) : 0;
    pCalibration->stepFraction  = static_cast<float>(step);
    pCalibration->limitFraction = static_cast<float>(limit);
    pCalibration->settleFrames  = (settle > 0.0) ? static_cast<uint32_t>(settle) : 0;
    return true;
}

bool ReadCalibrationOptions(OptionReader& reader, const chihost::NameValueList& userProps, RunConfig* pConfig)
{
    CalibrationConfig& calibration     = pConfig->calibration;
    calibration.enabled                = reader.Has("calibrate");
    pConfig->scenario.ois.swapGyroAxes = reader.Has("swap-axes");
    if (!calibration.enabled)
    {
        for (const char* pName : { "search", "single-axis", "wait", "fuse-id", "service-wait" })
        {
            if (reader.Has(pName))
            {
                return reader.Fail("--" + std::string(pName) + " belongs to the gain search; give --calibrate too");
            }
        }
        return true;
    }
    if (!CheckConflicts(reader, userProps, *pConfig))
    {
        return false;
    }
    const bool searchRead = HasEntry(userProps, kGainCalibrateProperty) ? ReadSearchProperty(reader, userProps, &calibration)
                                                                         : ReadSearchOptions(reader, &calibration);
    uint32_t   waitS      = calibration.socketWaitMs / kMillisecondsPerSecond;
    const bool waitRead   = reader.Whole32("service-wait", 0, kMaxSocketWaitS, &waitS);
    calibration.socketWaitMs = waitS * kMillisecondsPerSecond;
    return searchRead && waitRead && ReadFuseId(reader, userProps, &calibration);
}

void ComposeCalibrationDevice(RunConfig* pConfig)
{
    const CalibrationConfig& calibration = pConfig->calibration;
    DeviceRequest&           device      = pConfig->device;
    if (!calibration.enabled)
    {
        return;
    }
    if (!HasEntry(device.root.buildProperties, kFuseIdProperty))
    {
        device.root.buildProperties.push_back({ kFuseIdProperty, simsource::FuseIdPropertyValue(calibration.fuseId) });
    }
    device.root.overrideSettings.push_back({ kCalibrationSetting, "TRUE" });
    uint32_t flag = 0;
    if (!EepromSwapFlag(*pConfig, &flag))
    {
        device.host.eepromCustomInfo.push_back({ kAxisSwapEepromEntry, pConfig->scenario.ois.swapGyroAxes ? 1u : 0u });
    }
}

void BaseGains(const RunConfig& config, double* pGainX, double* pGainY)
{
    const std::string text  = EffectiveProperty(config.device.root.buildProperties, kDefaultGainProperty);
    const size_t      comma = text.find(',');
    char*             pEndX = nullptr;
    char*             pEndY = nullptr;
    const double      x     = (comma != std::string::npos) ? strtof(text.c_str(), &pEndX) : 0.0;
    const double      y     = (comma != std::string::npos) ? strtof(text.c_str() + comma + 1, &pEndY) : 0.0;
    const bool        read  = comma != std::string::npos && pEndX != text.c_str() && pEndY != text.c_str() + comma + 1;
    *pGainX                 = read ? x : config.scenario.ois.gainX;
    *pGainY                 = read ? y : config.scenario.ois.gainY;
}

bool EepromSwapFlag(const RunConfig& config, uint32_t* pValue)
{
    for (const auto& entry : config.device.host.eepromCustomInfo)
    {
        if (entry.first == kAxisSwapEepromEntry)
        {
            *pValue = entry.second;
            return true;
        }
    }
    return false;
}

} // namespace oisverify
