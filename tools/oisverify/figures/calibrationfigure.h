// The SR-versus-gain figure of a calibration run: one panel per gyro axis with the SR the node
// measured for every gain it tried (dots joined in gain order), the SR limit as a dashed line, the
// simulated module's ideal gain as a vertical line and the gain the node selected ringed. Written
// beside the positions figure as calibration.svg and inlined into the summary page.
#ifndef ZELK_TOOLS_OISVERIFY_CALIBRATIONFIGURE_H
#define ZELK_TOOLS_OISVERIFY_CALIBRATIONFIGURE_H

#include <string>

#include "verdict/calibrationresult.h"
#include "session/runconfig.h"

namespace oisverify
{

// Panel ids are "gyro-x" and "gyro-y", with groups "<panel>-tried", "<panel>-limit",
// "<panel>-ideal" and "<panel>-selected" inside.
std::string CalibrationSvg(const RunConfig& config, const CalibrationOutcome& outcome);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_CALIBRATIONFIGURE_H
