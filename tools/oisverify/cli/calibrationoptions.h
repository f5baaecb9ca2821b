// Options of "oisverify run --calibrate": the gyro-gain search the node runs after a verification
// below the limit, and what the emulated phone needs to close that loop through the simulated
// module: the calibration setting, the module's fuse-ID property (the key of its persist record)
// and the EEPROM flag that pairs the gyro axes with the image axes. The search is kept in the
// node's terms, the fields of vendor.debug.camera.oisGainCalibrate, so that the tool and the node
// agree on every target. Contradictions with the rest of the run are usage errors.
#ifndef ZELK_TOOLS_OISVERIFY_CALIBRATIONOPTIONS_H
#define ZELK_TOOLS_OISVERIFY_CALIBRATIONOPTIONS_H

#include <stdint.h>

#include <string>
#include <vector>

#include "cli/arguments.h"
#include "cli/optionreader.h"
#include "session/runconfig.h"

namespace oisverify
{

extern const char* const kDefaultFuseId;
extern const char* const kFuseIdProperty;      // camera role 0's: vendor.camera.sensor.w.fuseID
extern const char* const kCalibrationSetting;  // enableOISGyroGainCalibration
extern const char* const kAxisSwapEepromEntry; // OISGyroGainAndSRMatch

std::vector<OptionSpec> CalibrationOptionSpecs();

// The calibration property for a limit and a search: camera role 0, the held axis, the SR limit,
// step and limit as fractions of the base gain, and the settle count.
std::string ComposeGainCalibrate(double srLimitDb, const CalibrationConfig& calibration);

// Reads the search fields of a calibration property as the node does (a missing field is 0, the
// settle count is truncated); the SR limit is ParseSrLimit's. Fails for a field that is not a
// number.
bool ParseGainCalibrate(const std::string& text, CalibrationConfig* pCalibration, int32_t* pRoleId,
                        std::string* pError);

// Reads --calibrate, its options and --swap-axes into pConfig; needs the source, the scenario and
// the device request read already. False with a message on a usage error.
bool ReadCalibrationOptions(OptionReader& reader, const chihost::NameValueList& userProps, RunConfig* pConfig);

// Adds the setting, the fuse-ID property and the EEPROM flag the loop needs, each unless the user
// gave it; nothing without --calibrate.
void ComposeCalibrationDevice(RunConfig* pConfig);

// The base gains the node searches around: the module's gain property as the node reads it
// ("X,Y"), or the simulated gains when the property cannot be read.
void BaseGains(const RunConfig& config, double* pGainX, double* pGainY);

// The EEPROM flag the node will read (the user's entry wins); false when there is none.
bool EepromSwapFlag(const RunConfig& config, uint32_t* pValue);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_CALIBRATIONOPTIONS_H
