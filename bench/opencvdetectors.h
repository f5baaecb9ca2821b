// OpenCV contenders for the four-disc measurement, used only by the benchmark programs: circle
// Hough transform and the simple blob detector, each set up for the chart's dark discs of known
// approximate size, followed by the same post-step that picks the up, down, left and right discs
// from their detections. Both answer in the measurement library's record and pixel convention
// (centre of pixel (i, j) at (i, j)), so their results compare directly with ours.
#ifndef ZELK_BENCH_OPENCVDETECTORS_H
#define ZELK_BENCH_OPENCVDETECTORS_H

#include "oishighfps.h"

#include <opencv2/core.hpp>
#include <opencv2/features2d.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace cvbench
{

// One detection's centre, in the library's pixel convention.
struct Candidate
{
    double x = 0.0;
    double y = 0.0;
};

// PickCross considers only the first candidates: Hough lists its strongest circles first, and the
// blob detector's list on these charts is far shorter.
constexpr size_t kMaxCandidates = 16;

// Picks the chart's cross from a detector's candidates: an up/down pair and a left/right pair,
// each about twice the disc spacing long and aligned with the image axes, whose midpoints agree.
// The chart may sit anywhere in the image (the shake moves it), so no position is assumed. False
// when no such cross exists.
bool PickCross(const std::vector<Candidate>& candidates, double spacingPx, OISPointResult& result);

// The chart's expected geometry in a square crop of `side` pixels.
double DiscRadiusPx(int side);
double DiscSpacingPx(int side);

// cv::HoughCircles on a lightly smoothed copy of the crop. One instance per crop side; it keeps
// its work buffers between calls, as a production caller would.
class HoughDetector
{
public:
    explicit HoughDetector(int side);

    INT32       Measure(const uint8_t* luma, OISPointResult& result);
    std::string Settings() const;

private:
    int                    m_side;
    double                 m_smoothingSigmaPx;
    double                 m_dp;
    double                 m_minDistPx;
    double                 m_cannyHigh;
    double                 m_accumulatorThreshold;
    int                    m_minRadiusPx;
    int                    m_maxRadiusPx;
    cv::Mat                m_smoothed;
    std::vector<cv::Vec3f> m_circles;
    std::vector<Candidate> m_candidates;
};

// cv::SimpleBlobDetector looking for dark, round blobs of the discs' area. It binarises the image
// at `levels` thresholds spread evenly between ink and paper and averages each blob's centre over
// them: more levels cost time and buy accuracy (13 is OpenCV's default step of 10 DN over that
// range; 1 is a single threshold at mid-grey, the fastest set-up that still finds the discs).
class BlobDetector
{
public:
    BlobDetector(int side, int levels);

    INT32       Measure(const uint8_t* luma, OISPointResult& result);
    std::string Settings() const;

private:
    int                             m_side;
    cv::SimpleBlobDetector::Params  m_params;
    cv::Ptr<cv::SimpleBlobDetector> m_detector;
    std::vector<cv::KeyPoint>       m_keypoints;
    std::vector<Candidate>          m_candidates;
};

// OpenCV on one thread: our measurement runs on one core, and the node gets one per frame.
void UseOneThread();

} // namespace cvbench

#endif // ZELK_BENCH_OPENCVDETECTORS_H
