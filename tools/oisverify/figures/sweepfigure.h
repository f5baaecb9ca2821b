// The SR-versus-frequency figure of a frequency sweep: the SR the node measured on each image axis
// at every shake frequency (dots joined in frequency order), the simulator's true SR beside it
// (rings, dashed), and the SR limit as a dashed line. Written as sweep.svg.
#ifndef ZELK_TOOLS_OISVERIFY_SWEEPFIGURE_H
#define ZELK_TOOLS_OISVERIFY_SWEEPFIGURE_H

#include <string>
#include <vector>

#include "session/frequencysweep.h"

namespace oisverify
{

// Series groups: "node-horizontal", "node-vertical", "true-horizontal", "true-vertical", "limit".
std::string SweepSvg(const std::vector<SweepPoint>& points, double limitDb);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_SWEEPFIGURE_H
