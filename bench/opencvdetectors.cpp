// The OpenCV contenders and the cross-picking post-step. The settings are what someone who knows
// the chart would choose for OpenCV: the disc size and spacing are given to both detectors (an
// advantage our library does not take: it finds the discs' size itself), Hough works at full
// accumulator resolution on a lightly smoothed image, and the blob detector looks only for dark,
// round blobs of about the discs' area over the levels between ink and paper.
#include "opencvdetectors.h"

#include "sim/scenario.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace cvbench
{
namespace
{

// A pair of candidates along one image axis: first is above (or left of) second.
struct AxisPair
{
    size_t first;
    size_t second;
    double midX;
    double midY;
    double lengthPx;
};

// Pairs whose separation along the axis is about twice the spacing and small across it. The
// tolerance (a fifth of the expected length) allows for chart tilt and scale well beyond what the
// table produces, yet keeps a disc from pairing with a neighbour at 45 degrees.
std::vector<AxisPair> AxisPairs(const std::vector<Candidate>& c, size_t count, double spacingPx,
                                bool vertical)
{
    const double          wantPx      = 2.0 * spacingPx;
    const double          tolerancePx = 0.2 * wantPx;
    std::vector<AxisPair> pairs;
    for (size_t i = 0; i < count; ++i)
    {
        for (size_t j = 0; j < count; ++j)
        {
            const double along  = vertical ? c[j].y - c[i].y : c[j].x - c[i].x;
            const double across = vertical ? c[j].x - c[i].x : c[j].y - c[i].y;
            if (i != j && std::fabs(along - wantPx) <= tolerancePx &&
                std::fabs(across) <= tolerancePx)
            {
                pairs.push_back({i, j, 0.5 * (c[i].x + c[j].x), 0.5 * (c[i].y + c[j].y), along});
            }
        }
    }
    return pairs;
}

void StoreCentre(const Candidate& c, double& x, double& y)
{
    x = c.x;
    y = c.y;
}

} // namespace

double DiscRadiusPx(int side)
{
    return sim::kDiscRadiusFraction * side;
}

double DiscSpacingPx(int side)
{
    return sim::kDiscSpacingFraction * side;
}

bool PickCross(const std::vector<Candidate>& candidates, double spacingPx, OISPointResult& result)
{
    const size_t    count          = std::min(candidates.size(), kMaxCandidates);
    const auto      vertical       = AxisPairs(candidates, count, spacingPx, true);
    const auto      across         = AxisPairs(candidates, count, spacingPx, false);
    const double    maxMidOffsetPx = 0.2 * spacingPx;
    const AxisPair* bestV          = nullptr;
    const AxisPair* bestH          = nullptr;
    double          bestCost       = 0.0;
    for (const AxisPair& v : vertical)
    {
        for (const AxisPair& h : across)
        {
            if (v.first == h.first || v.first == h.second || v.second == h.first ||
                v.second == h.second)
            {
                continue;
            }
            const double mid  = std::hypot(v.midX - h.midX, v.midY - h.midY);
            const double cost = mid * mid + (v.lengthPx - h.lengthPx) * (v.lengthPx - h.lengthPx);
            if (mid <= maxMidOffsetPx && (bestV == nullptr || cost < bestCost))
            {
                bestV    = &v;
                bestH    = &h;
                bestCost = cost;
            }
        }
    }
    if (bestV == nullptr)
    {
        return false;
    }
    StoreCentre(candidates[bestV->first], result.upX, result.upY);
    StoreCentre(candidates[bestV->second], result.downX, result.downY);
    StoreCentre(candidates[bestH->first], result.leftX, result.leftY);
    StoreCentre(candidates[bestH->second], result.rightX, result.rightY);
    return true;
}

// Hough settings. A Gaussian of sigma 2 px first, as OpenCV advises for Hough: of sigma 1 and 2,
// 2 placed smeared discs better at the same cost. HOUGH_GRADIENT at dp 1, the accumulator at image
// resolution: its centres are accumulator cells, so whole pixels are the best it resolves. (The
// ALT variant, tried at dp 1 and 1.5 with param1 300 and param2 0.8 to 0.9, was two to three times
// slower and no better under smear: 0.35 px RMS on sharp discs at dp 1 against 0.46 here.) Canny
// high threshold 100 (low 50): the discs' edges are 160 DN steps, strong even under 20 px of
// smear, while 5 DN noise after smoothing stays far below. Accumulator threshold 30 votes: a
// disc's rim has about 200 edge pixels, so a blurred, noisy disc still clears it, and minDist of
// one spacing keeps one circle per disc (neighbouring discs are 1.4 spacings apart). Radii 0.75
// to 1.3 of the disc radius cover the rim's apparent size under smear.
HoughDetector::HoughDetector(int side)
    : m_side(side), m_smoothingSigmaPx(2.0), m_dp(1.0), m_minDistPx(DiscSpacingPx(side)),
      m_cannyHigh(100.0), m_accumulatorThreshold(30.0),
      m_minRadiusPx(static_cast<int>(std::lround(0.75 * DiscRadiusPx(side)))),
      m_maxRadiusPx(static_cast<int>(std::lround(1.3 * DiscRadiusPx(side))))
{
}

INT32 HoughDetector::Measure(const uint8_t* luma, OISPointResult& result)
{
    // Wraps the caller's bytes without copying; OpenCV only reads them.
    const cv::Mat image(m_side, m_side, CV_8UC1, const_cast<uint8_t*>(luma));
    cv::GaussianBlur(image, m_smoothed, cv::Size(0, 0), m_smoothingSigmaPx);
    cv::HoughCircles(m_smoothed, m_circles, cv::HOUGH_GRADIENT, m_dp, m_minDistPx, m_cannyHigh,
                     m_accumulatorThreshold, m_minRadiusPx, m_maxRadiusPx);
    m_candidates.clear();
    for (const cv::Vec3f& circle : m_circles)
    {
        m_candidates.push_back({circle[0], circle[1]});
    }
    return PickCross(m_candidates, DiscSpacingPx(m_side), result) ? OISHighFPSSuccess
                                                                  : OISHighFPSNotFound;
}

std::string HoughDetector::Settings() const
{
    char text[200];
    std::snprintf(text, sizeof(text),
                  "GaussianBlur sigma %.1f; HOUGH_GRADIENT dp %.1f minDist %.1f param1 %.0f "
                  "param2 %.0f radius %d..%d",
                  m_smoothingSigmaPx, m_dp, m_minDistPx, m_cannyHigh, m_accumulatorThreshold,
                  m_minRadiusPx, m_maxRadiusPx);
    return text;
}

// Blob settings. Thresholds lie between ink (30 DN) and paper (190 DN), 50 to 170 DN, with room for
// 5 DN noise at both ends; with several levels a blob must appear at two of them. Area within 0.5
// to 2 times the disc's keeps smeared discs and drops noise specks; blobs closer than half a
// spacing are one blob. Circularity 0.6 admits a disc smeared by 20 px (about 0.95) even with a
// noise-ragged outline, and nothing elongated. Inertia and convexity filters are off: on these
// frames they only dropped real discs at the extreme levels, which made the averaged centres worse.
BlobDetector::BlobDetector(int side, int levels) : m_side(side)
{
    constexpr float kLowestDn = 50.0F, kHighestDn = 170.0F;
    const double    area  = sim::kPi * DiscRadiusPx(side) * DiscRadiusPx(side);
    const float     step  = levels > 1 ? (kHighestDn - kLowestDn) / (levels - 1) : 1.0F;
    m_params.minThreshold = levels > 1 ? kLowestDn : 0.5F * (kLowestDn + kHighestDn);
    // The detector stops below maxThreshold: half a step of headroom keeps the last level.
    m_params.maxThreshold        = m_params.minThreshold + step * (levels - 1) + 0.5F * step;
    m_params.thresholdStep       = step;
    m_params.minRepeatability    = levels > 1 ? 2 : 1;
    m_params.minDistBetweenBlobs = static_cast<float>(0.5 * DiscSpacingPx(side));
    m_params.filterByColor       = true;
    m_params.blobColor           = 0;
    m_params.filterByArea        = true;
    m_params.minArea             = static_cast<float>(0.5 * area);
    m_params.maxArea             = static_cast<float>(2.0 * area);
    m_params.filterByCircularity = true;
    m_params.minCircularity      = 0.6F;
    m_params.filterByInertia     = false;
    m_params.filterByConvexity   = false;
    m_detector                   = cv::SimpleBlobDetector::create(m_params);
}

INT32 BlobDetector::Measure(const uint8_t* luma, OISPointResult& result)
{
    const cv::Mat image(m_side, m_side, CV_8UC1, const_cast<uint8_t*>(luma));
    m_detector->detect(image, m_keypoints);
    m_candidates.clear();
    for (const cv::KeyPoint& keypoint : m_keypoints)
    {
        m_candidates.push_back({keypoint.pt.x, keypoint.pt.y});
    }
    return PickCross(m_candidates, DiscSpacingPx(m_side), result) ? OISHighFPSSuccess
                                                                  : OISHighFPSNotFound;
}

std::string BlobDetector::Settings() const
{
    char text[240];
    std::snprintf(text, sizeof(text),
                  "thresholds %.0f..%.0f step %.0f, seen at >= %zu; dark; area %.0f..%.0f; "
                  "circularity >= %.2f; minDist %.1f",
                  m_params.minThreshold, m_params.maxThreshold - 0.5F * m_params.thresholdStep,
                  m_params.thresholdStep, m_params.minRepeatability, m_params.minArea,
                  m_params.maxArea, m_params.minCircularity, m_params.minDistBetweenBlobs);
    return text;
}

void UseOneThread()
{
    cv::setNumThreads(1);
}

} // namespace cvbench
