// Test access to libOISHighFPS.so the way the node gets it (dlopen by path, then the exported
// symbol), and helpers that compare its results with the simulator's truth.
#ifndef ZELK_TESTS_ALGO_MEASUREMENTLIBRARY_H
#define ZELK_TESTS_ALGO_MEASUREMENTLIBRARY_H

#include "oishighfps.h"
#include "sim/simulator.h"

#include <algorithm>
#include <cmath>
#include <dlfcn.h>

namespace algotest
{

class MeasurementLibrary
{
public:
    MeasurementLibrary() : m_handle(dlopen(OIS_HIGH_FPS_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL))
    {
        m_measure = reinterpret_cast<PFNOISHIGHFPS>(Symbol(OIS_HIGH_FPS_SYMBOL));
    }
    ~MeasurementLibrary()
    {
        if (m_handle != nullptr)
        {
            dlclose(m_handle);
        }
    }
    MeasurementLibrary(const MeasurementLibrary&)            = delete;
    MeasurementLibrary& operator=(const MeasurementLibrary&) = delete;

    bool  Loaded() const { return m_measure != nullptr; }
    void* Symbol(const char* name) const { return m_handle ? dlsym(m_handle, name) : nullptr; }
    INT32 Measure(uint8_t* image, int width, int height, OISPointResult* result) const
    {
        return m_measure(image, OISImageSize{width, height}, result);
    }

private:
    void*         m_handle  = nullptr;
    PFNOISHIGHFPS m_measure = nullptr;
};

// A square chart image (the whole frame is the crop the node would pass) whose frames differ by
// a few pixels of shake: successive frames put the discs at different sub-pixel phases.
inline sim::Scenario SquareScenario(int side)
{
    sim::Scenario s       = sim::OisOffScenario();
    s.sensor.widthPx      = side;
    s.sensor.heightPx     = side;
    s.sensor.exposureS    = 0.0;
    s.ois.residualFloorPx = 0.0;
    s.shake.amplitudeXPx  = 7.3;
    s.shake.amplitudeYPx  = 5.1;
    return s;
}

inline sim::FourCentres ToCentres(const OISPointResult& r)
{
    return {{r.upX, r.upY}, {r.downX, r.downY}, {r.leftX, r.leftY}, {r.rightX, r.rightY}};
}

// Largest coordinate error against the truth; adds the squared errors to sumSqPx.
inline double MaxCentreError(const OISPointResult& result, const sim::FourCentres& truth,
                             double& sumSqPx)
{
    const sim::FourCentres m      = ToCentres(result);
    const sim::Point       got[]  = {m.up, m.down, m.left, m.right};
    const sim::Point       want[] = {truth.up, truth.down, truth.left, truth.right};
    double                 worst  = 0.0;
    for (int i = 0; i < 4; ++i)
    {
        const double dx = got[i].x - want[i].x, dy = got[i].y - want[i].y;
        worst = std::max({worst, std::fabs(dx), std::fabs(dy)});
        sumSqPx += dx * dx + dy * dy;
    }
    return worst;
}

} // namespace algotest

#endif // ZELK_TESTS_ALGO_MEASUREMENTLIBRARY_H
