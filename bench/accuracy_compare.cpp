// Centre accuracy of our measurement against the two OpenCV contenders on the same rendered
// 540 x 540 chart images with exact truth, across sensor noise and motion blur along either axis.
// Error of one disc = distance from its measured to its true centre (px); per condition the
// table gives the RMS and the maximum over all discs of all frames a contender measured, and the
// frames where it did not return all four discs (those add nothing to RMS or max). The last
// column divides our RMS by the best OpenCV RMS of the row (below 1: ours is more accurate).
//   accuracy_compare [framesPerCondition]     (default 20)
#include "benchframes.h"
#include "opencvdetectors.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace
{

constexpr int kSidePx = 540;

struct Condition
{
    double noiseDn;
    double blurXPx;
    double blurYPx;
};

std::vector<Condition> Conditions()
{
    const double           noises[] = {0.0, 2.0, 5.0};
    const Condition        blurs[]  = {{0, 0, 0}, {0, 8, 0}, {0, 20, 0}, {0, 0, 8}, {0, 0, 20}};
    std::vector<Condition> all;
    for (double noise : noises)
    {
        for (Condition blur : blurs)
        {
            blur.noiseDn = noise;
            all.push_back(blur);
        }
    }
    return all;
}

class Score
{
public:
    void Add(INT32 status, const OISPointResult& r, const sim::FourCentres& truth)
    {
        if (status != OISHighFPSSuccess)
        {
            ++m_failures;
            return;
        }
        for (double error : benchframes::CentreErrorsPx(r, truth))
        {
            m_sumSqPx += error * error;
            m_worstPx = std::max(m_worstPx, error);
            ++m_centres;
        }
    }
    void Merge(const Score& other)
    {
        m_sumSqPx += other.m_sumSqPx;
        m_worstPx = std::max(m_worstPx, other.m_worstPx);
        m_centres += other.m_centres;
        m_failures += other.m_failures;
    }
    double Rms() const { return m_centres > 0 ? std::sqrt(m_sumSqPx / m_centres) : NAN; }
    double Worst() const { return m_centres > 0 ? m_worstPx : NAN; }
    int    Failures() const { return m_failures; }

private:
    double m_sumSqPx  = 0.0;
    double m_worstPx  = 0.0;
    int    m_centres  = 0;
    int    m_failures = 0;
};

using Measure = std::function<INT32(uint8_t* luma, OISPointResult& result)>;

struct Contender
{
    const char* name;
    Measure     measure;
};

// Scores every contender on the same frames of one condition.
std::vector<Score> ScoreCondition(const Condition& c, uint32_t frames,
                                  const std::vector<Contender>& contenders)
{
    const sim::Simulator simulator(
        benchframes::SquareScenario(kSidePx, c.noiseDn, c.blurXPx, c.blurYPx));
    std::vector<uint8_t> image(static_cast<size_t>(kSidePx) * kSidePx);
    std::vector<Score>   scores(contenders.size());
    for (uint32_t frame = 0; frame < frames; ++frame)
    {
        simulator.RenderLuma(frame, image.data(), kSidePx);
        const sim::FourCentres truth = simulator.Truth(frame).CropCentres();
        for (size_t k = 0; k < contenders.size(); ++k)
        {
            OISPointResult result{};
            const INT32    status = contenders[k].measure(image.data(), result);
            scores[k].Add(status, result, truth);
        }
    }
    return scores;
}

std::string BlurName(const Condition& c)
{
    char text[16];
    if (c.blurXPx > 0.0)
    {
        std::snprintf(text, sizeof(text), "%2.0f x", c.blurXPx);
    }
    else if (c.blurYPx > 0.0)
    {
        std::snprintf(text, sizeof(text), "%2.0f y", c.blurYPx);
    }
    else
    {
        std::snprintf(text, sizeof(text), " 0");
    }
    return text;
}

void PrintHeader(const std::vector<Contender>& contenders)
{
    std::printf("%-5s %-5s", "noise", "blur");
    for (const Contender& k : contenders)
    {
        std::printf(" | %-20s", k.name);
    }
    std::printf(" | ours /\n%-5s %-5s", "DN", "px");
    for (size_t k = 0; k < contenders.size(); ++k)
    {
        std::printf(" | %7s %7s %4s", "rms", "max", "fail");
    }
    std::printf(" | best cv\n");
}

// Our RMS over the best (smallest) RMS among the OpenCV contenders, which follow ours.
double RatioToBestOpenCv(const std::vector<Score>& scores)
{
    double best = NAN;
    for (size_t k = 1; k < scores.size(); ++k)
    {
        if (!std::isnan(scores[k].Rms()) && !(scores[k].Rms() >= best))
        {
            best = scores[k].Rms();
        }
    }
    return scores[0].Rms() / best;
}

void PrintRow(const std::string& noise, const std::string& blur, const std::vector<Score>& scores)
{
    std::printf("%5s %-5s", noise.c_str(), blur.c_str());
    for (const Score& s : scores)
    {
        std::printf(" | %7.4f %7.4f %4d", s.Rms(), s.Worst(), s.Failures());
    }
    std::printf(" | %7.3f\n", RatioToBestOpenCv(scores));
}

// Every blur of one noise level pooled into one row.
std::vector<Score> PoolNoise(double noiseDn, const std::vector<Condition>& conditions,
                             const std::vector<std::vector<Score>>& rows)
{
    std::vector<Score> pooled(rows.front().size());
    for (size_t i = 0; i < rows.size(); ++i)
    {
        for (size_t k = 0; k < pooled.size() && conditions[i].noiseDn == noiseDn; ++k)
        {
            pooled[k].Merge(rows[i][k]);
        }
    }
    return pooled;
}

// Our library in the shape of the OpenCV detectors.
struct OurMeasurement
{
    PFNOISHIGHFPS measure;

    INT32 Measure(uint8_t* luma, OISPointResult& r) const
    {
        return measure(luma, {kSidePx, kSidePx}, &r);
    }
};

// A detector as a contender: its Measure on the crop.
template <typename Detector>
Contender AsContender(const char* name, Detector& detector)
{
    return {name, [&detector](uint8_t* luma, OISPointResult& r)
            {
                return detector.Measure(luma, r);
            }};
}

// One row per condition, then one per noise level with every blur pooled.
void PrintTable(const std::vector<Contender>& contenders, uint32_t frames)
{
    PrintHeader(contenders);
    const std::vector<Condition>    conditions = Conditions();
    std::vector<std::vector<Score>> rows;
    char                            noise[16];
    for (const Condition& c : conditions)
    {
        rows.push_back(ScoreCondition(c, frames, contenders));
        std::snprintf(noise, sizeof(noise), "%.0f", c.noiseDn);
        PrintRow(noise, BlurName(c), rows.back());
    }
    std::printf("\nAll blurs pooled per noise level:\n");
    for (double noiseDn : {0.0, 2.0, 5.0})
    {
        std::snprintf(noise, sizeof(noise), "%.0f", noiseDn);
        PrintRow(noise, "all", PoolNoise(noiseDn, conditions, rows));
    }
}

} // namespace

int main(int argc, char** argv)
{
    const uint32_t frames = argc > 1 ? static_cast<uint32_t>(std::max(1, std::atoi(argv[1]))) : 20;
    const PFNOISHIGHFPS library = benchframes::LoadMeasurement();
    if (library == nullptr)
    {
        std::fprintf(stderr, "accuracy_compare: cannot load %s\n", OIS_HIGH_FPS_LIBRARY_FILE);
        return 1;
    }
    cvbench::UseOneThread();
    cvbench::HoughDetector hough(kSidePx);
    cvbench::BlobDetector  blobFine(kSidePx, 13);
    cvbench::BlobDetector  blobLean(kSidePx, 1);
    OurMeasurement         ours{library};
    std::printf("Centre error (px, distance to the true centre) on %dx%d charts, %u frames per "
                "condition, 4 discs each; blur is motion along x or y\n",
                kSidePx, kSidePx, frames);
    std::printf("  HoughCircles:    %s\n  Blob, 13 levels: %s\n  Blob, 1 level:   %s\n\n",
                hough.Settings().c_str(), blobFine.Settings().c_str(), blobLean.Settings().c_str());
    PrintTable({AsContender("ours", ours), AsContender("HoughCircles", hough),
                AsContender("Blob, 13 levels", blobFine), AsContender("Blob, 1 level", blobLean)},
               frames);
    return 0;
}
