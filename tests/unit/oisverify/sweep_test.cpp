// The frequency sweep's list syntax, the command line of each point, and its figure.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "figures/sweepfigure.h"
#include "session/frequencysweep.h"

namespace
{

struct ListCase
{
    const char*           text;
    std::vector<uint32_t> expected; // empty: refused
};

class FrequencyList : public ::testing::TestWithParam<ListCase>
{
};

TEST_P(FrequencyList, ReadsListsAndRangesSortedWithoutRepeats)
{
    std::vector<uint32_t> list;
    std::string           error;
    const bool            ok = oisverify::ParseFrequencyList(GetParam().text, &list, &error);
    EXPECT_EQ(ok, !GetParam().expected.empty()) << GetParam().text;
    if (ok)
    {
        EXPECT_EQ(list, GetParam().expected);
    }
    else
    {
        EXPECT_NE(error.find("--sweep-freq"), std::string::npos) << error;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, FrequencyList,
    ::testing::Values(ListCase{"2,4,8", {2, 4, 8}}, ListCase{"8,2,4,2", {2, 4, 8}},
                      ListCase{"1-5", {1, 2, 3, 4, 5}}, ListCase{"2-9/3", {2, 5, 8}},
                      ListCase{"1,3-4,10-20/10", {1, 3, 4, 10, 20}}, ListCase{"500", {500}},
                      ListCase{"", {}}, ListCase{"0", {}}, ListCase{"501", {}}, ListCase{"2,,4", {}},
                      ListCase{"5-2", {}}, ListCase{"2-8/0", {}}, ListCase{"2.5", {}},
                      ListCase{"-3", {}}, ListCase{"1-65", {}}, ListCase{"4,x", {}}));

TEST(SweepPointArguments, ReplaceTheSweepByTheFrequency)
{
    const char* words[] = {"oisverify", "run", "--gain", "0.9", "--sweep-freq", "2,4", "--out", "o",
                           "--sweep-freq=1-3", "--noise", "1"};
    std::vector<char*> argv;
    for (const char* word : words)
    {
        argv.push_back(const_cast<char*>(word));
    }
    EXPECT_EQ(oisverify::PointArguments(static_cast<int>(argv.size()), argv.data(), 2, 6),
              (std::vector<std::string>{"--gain", "0.9", "--out", "o", "--noise", "1", "--freq", "6"}));
}

TEST(SweepFigure, OnePointPerFrequencyAndSeriesAndTheLimit)
{
    std::vector<oisverify::SweepPoint> points(3);
    for (size_t i = 0; i < points.size(); ++i)
    {
        points[i].frequencyHz = static_cast<uint32_t>(2 * (i + 1));
        points[i].hasSr       = i != 1; // the node gave no SR at 4 Hz
        points[i].horSrDb     = 20.0f - 3.0f * i;
        points[i].verSrDb     = 19.0f - 3.0f * i;
        points[i].hasTruth    = true;
    }
    const std::string svg = oisverify::SweepSvg(points, 18.0);
    auto group = [&svg](const std::string& id)
    {
        const size_t start = svg.find("id=\"" + id + "\"");
        const size_t end   = svg.find("</g>", start);
        return start == std::string::npos ? std::string() : svg.substr(start, end - start);
    };
    auto count = [](const std::string& text, const std::string& word)
    {
        size_t n = 0;
        for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
        {
            ++n;
        }
        return n;
    };
    EXPECT_EQ(count(group("node-horizontal"), "<circle"), 2u);
    EXPECT_EQ(count(group("node-vertical"), "<circle"), 2u);
    EXPECT_EQ(count(group("true-horizontal"), "<circle"), 3u);
    EXPECT_NE(group("limit").find("limit 18 dB"), std::string::npos);
    EXPECT_EQ(svg.find("nan"), std::string::npos);
}

} // namespace
