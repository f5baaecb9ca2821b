// The run's written output: the positions and summary figures, the summary page and the CSV are
// well-formed and carry every series and value; the SVG helpers they are built from.
#include <gtest/gtest.h>

#include <math.h>

#include "clitestsupport.h"
#include "report/htmlsummary.h"
#include "report/runoutput.h"
#include "figures/svgfigures.h"
#include "figures/svgwriter.h"

namespace
{

using oisverify::RunFrame;
using oisverify::RunResult;

const char* const kPanels[] = { "up-x", "up-y", "down-x", "down-y", "left-x", "left-y", "right-x", "right-y" };

// Ten measured frames (numbers 10..19), the fifth one failed, the last seven in the SR window.
RunResult SampleResult(bool withTruth)
{
    RunResult result;
    result.finished       = true;
    result.finalState     = 4;
    result.requests       = 20;
    result.horSrDb        = 24.1f;
    result.verSrDb        = 23.9f;
    result.events.hasSr   = true;
    result.events.measured = 9;
    result.events.failed  = 1;
    for (uint32_t i = 0; i < 10; i++)
    {
        RunFrame          frame;
        sim::FourCentres& c       = frame.measured.centres;
        const double      wobble  = 3.0 * sin(0.7 * i);
        frame.measured.frameNum   = 10 + i;
        frame.measured.algoReturn = (i == 4) ? -100 : 0;
        c.up                      = { 270.0 + wobble, 150.0 + wobble };
        c.down                    = { 270.0 + wobble, 390.0 + wobble };
        c.left                    = { 150.0 + wobble, 270.0 + wobble };
        c.right                   = { 390.0 + wobble, 270.0 + wobble };
        frame.truth               = c;
        frame.hasTruth            = withTruth;
        frame.inRing              = (i >= 3);
        result.frames.push_back(frame);
    }
    result.hasTruth        = withTruth;
    result.truth.horSrDb   = 24.0f;
    result.truth.verSrDb   = 23.95f;
    result.nodeFiles       = { "oisVerify.json", "oisVerify_point_position.txt" };
    return result;
}

// The text of the group with this id, up to its closing tag (groups of series do not nest).
std::string Group(const std::string& svg, const std::string& id)
{
    const size_t start = svg.find("<g id=\"" + id + "\">");
    return (start == std::string::npos) ? "" : svg.substr(start, svg.find("</g>", start) - start);
}

TEST(PositionsFigure, HasEveryPanelWithItsSeries)
{
    const std::string svg = oisverify::PositionsSvg(SampleResult(true));
    EXPECT_EQ(clitest::CheckMarkup(svg), "");
    for (const char* pPanel : kPanels)
    {
        const std::string panel = pPanel;
        EXPECT_EQ(clitest::CountOf(Group(svg, panel + "-measured"), "<circle"), 9u) << panel;
        EXPECT_EQ(clitest::CountOf(Group(svg, panel + "-failed"), "<rect"), 1u) << panel;
        const std::string truth = Group(svg, panel + "-truth");
        ASSERT_EQ(clitest::CountOf(truth, "<polyline"), 1u) << panel;
        EXPECT_EQ(clitest::CountOf(truth, ",") , 10u) << panel << ": one point per measured frame";
        EXPECT_NE(svg.find("id=\"" + panel + "-ring\""), std::string::npos) << panel;
    }
}

// After a gain search the SR window is the selected measurements, not the last frames: one band
// per run of window frames, each ending at its own last frame.
TEST(PositionsFigure, BandsFollowTheWindowFrames)
{
    RunResult result = SampleResult(true);
    for (size_t i = 0; i < result.frames.size(); i++)
    {
        result.frames[i].inRing = (i >= 1 && i <= 3) || (i >= 6 && i <= 7);
    }
    const std::string svg = oisverify::PositionsSvg(result);
    EXPECT_EQ(clitest::CheckMarkup(svg), "");
    EXPECT_EQ(clitest::CountOf(svg, "-ring\""), 8u);
    EXPECT_EQ(clitest::CountOf(svg, "-ring-2\""), 8u);
    EXPECT_EQ(clitest::CountOf(svg, "-ring-3\""), 0u);
    for (RunFrame& frame : result.frames)
    {
        frame.inRing = false;
    }
    EXPECT_EQ(oisverify::PositionsSvg(result).find("-ring"), std::string::npos);
}

// Larger coordinates are drawn higher up: the y axis grows upwards.
TEST(PositionsFigure, PlotsLargerValuesHigher)
{
    RunResult result = SampleResult(false);
    result.frames.resize(2);
    result.frames[0].measured.centres.up.y = 100.0;
    result.frames[1].measured.centres.up.y = 200.0;
    const std::string group = Group(oisverify::PositionsSvg(result), "up-y-measured");
    const size_t      first = group.find("cy=\"");
    const size_t      second = group.find("cy=\"", first + 1);
    ASSERT_NE(second, std::string::npos);
    EXPECT_GT(atof(group.c_str() + first + 4), atof(group.c_str() + second + 4));
}

TEST(PositionsFigure, WithoutTruthOrFramesStaysWellFormed)
{
    const std::string noTruth = oisverify::PositionsSvg(SampleResult(false));
    EXPECT_EQ(clitest::CheckMarkup(noTruth), "");
    EXPECT_EQ(clitest::CountOf(noTruth, "<polyline"), 0u);
    EXPECT_EQ(noTruth.find("simulator truth"), std::string::npos);

    const std::string empty = oisverify::PositionsSvg(RunResult());
    EXPECT_EQ(clitest::CheckMarkup(empty), "");
    EXPECT_NE(empty.find("measured no frames"), std::string::npos);
}

oisverify::Verdict MakeVerdict(bool pass, const std::string& headline)
{
    oisverify::Verdict verdict;
    verdict.pass     = pass;
    verdict.headline = headline;
    verdict.reasons  = pass ? std::vector<std::string>{} : std::vector<std::string>{ headline };
    return verdict;
}

TEST(SummaryFigure, ShowsBadgeBarsTruthAndLimit)
{
    oisverify::RunConfig config;
    const std::string    svg = oisverify::SummarySvg(config, SampleResult(true), MakeVerdict(true, "fine"));
    EXPECT_EQ(clitest::CheckMarkup(svg), "");
    EXPECT_NE(svg.find(">PASS</text>"), std::string::npos);
    for (const char* pId : { "horizontal", "vertical", "horizontal-true", "vertical-true" })
    {
        EXPECT_NE(svg.find(std::string("id=\"") + pId + "\""), std::string::npos) << pId;
    }
    EXPECT_NE(svg.find(">24.1 dB</text>"), std::string::npos);
    EXPECT_NE(svg.find(">true 23.95 dB</text>"), std::string::npos);
    EXPECT_NE(svg.find(">limit 18 dB</text>"), std::string::npos);
}

TEST(SummaryFigure, OddSrValuesAndMissingSrStayDrawable)
{
    oisverify::RunConfig config;
    RunResult            odd = SampleResult(false);
    odd.horSrDb              = INFINITY;
    odd.verSrDb              = NAN;
    const std::string svg    = oisverify::SummarySvg(config, odd, MakeVerdict(false, "vertical SR is not a number"));
    EXPECT_EQ(clitest::CheckMarkup(svg), "");
    EXPECT_EQ(svg.find("=\"nan"), std::string::npos);
    EXPECT_EQ(svg.find("=\"inf"), std::string::npos);
    EXPECT_NE(svg.find(">inf dB</text>"), std::string::npos);

    RunResult none        = SampleResult(false);
    none.events.hasSr     = false;
    const std::string bad = oisverify::SummarySvg(config, none, MakeVerdict(false, "error -12"));
    EXPECT_EQ(clitest::CheckMarkup(bad), "");
    EXPECT_NE(bad.find(">FAIL</text>"), std::string::npos);
    EXPECT_EQ(bad.find("id=\"horizontal\""), std::string::npos);
}

TEST(SummaryPage, IsWellFormedAndCarriesVerdictTableFiguresAndFiles)
{
    oisverify::RunConfig config;
    config.source    = oisverify::FrameSource::Replay;
    config.replayDir = "/frames/a&b<c>";
    RunResult          result  = SampleResult(true);
    oisverify::Verdict verdict = MakeVerdict(false, "two reasons");
    verdict.reasons            = { "horizontal SR <low>", "vertical SR & low" };
    const std::string  summary = oisverify::SummarySvg(config, result, verdict);
    const std::string  html    = oisverify::SummaryHtml(config, result, verdict, summary, oisverify::PositionsSvg(result),
                                                        { "index.html", "oisVerify.json" });
    EXPECT_EQ(clitest::CheckMarkup(html), "");
    EXPECT_NE(html.find("<h1 class=\"fail\">FAIL</h1>"), std::string::npos);
    EXPECT_NE(html.find("<li>horizontal SR &lt;low&gt;</li>"), std::string::npos);
    EXPECT_NE(html.find("<li>vertical SR &amp; low</li>"), std::string::npos);
    EXPECT_NE(html.find("<td class=\"good\">24.10 dB</td><td>24.00 dB</td><td>+0.10 dB</td>"), std::string::npos);
    EXPECT_NE(html.find("/frames/a&amp;b&lt;c&gt;"), std::string::npos);
    EXPECT_EQ(clitest::CountOf(html, "<svg "), 2u);
    EXPECT_NE(html.find("<a href=\"oisVerify.json\">oisVerify.json</a>"), std::string::npos);
}

TEST(PositionsCsv, OneRowPerFrameWithWindowFlagAndTruth)
{
    RunResult result          = SampleResult(true);
    result.frames[9].hasTruth = false;
    const std::string csv     = oisverify::PositionsCsv(result);
    EXPECT_EQ(clitest::CountOf(csv, "\n"), 11u);
    EXPECT_EQ(csv.compare(0, 20, "frame,ring_slot,algo"), 0);
    EXPECT_NE(csv.find("\n12,0,0,0,"), std::string::npos);
    EXPECT_NE(csv.find("\n14,0,-100,1,"), std::string::npos);
    EXPECT_NE(csv.find(",,,,,,,,\n"), std::string::npos) << "a frame without truth leaves those columns empty";
    EXPECT_EQ(clitest::CountOf(csv.substr(0, csv.find('\n')), ","), 19u);
}

TEST(SvgWriter, EscapesTicksAndNumbers)
{
    EXPECT_EQ(oisverify::XmlEscape("a<b>&\"c'"), "a&lt;b&gt;&amp;&quot;c&#39;");
    EXPECT_EQ(oisverify::NiceTicks(0.0, 1.0, 5), (std::vector<double>{ 0.0, 0.2, 0.4, 0.6, 0.8, 1.0 }));
    EXPECT_EQ(oisverify::NiceTicks(118.0, 152.0, 6), (std::vector<double>{ 120, 130, 140, 150 }));
    EXPECT_EQ(oisverify::NiceTicks(-3.0, 3.0, 3), (std::vector<double>{ -2.0, 0.0, 2.0 }));
    EXPECT_EQ(oisverify::NiceTicks(0.0, 30.0, 8), (std::vector<double>{ 0, 5, 10, 15, 20, 25, 30 }));
    EXPECT_TRUE(oisverify::NiceTicks(5.0, 5.0, 3).empty());
    EXPECT_TRUE(oisverify::NiceTicks(0.0, INFINITY, 3).empty());
    EXPECT_EQ(oisverify::ShortNumber(12.5), "12.5");
    EXPECT_EQ(oisverify::ShortNumber(3.0), "3");
    EXPECT_EQ(oisverify::ShortNumber(-0.001), "0");
    oisverify::SvgDocument doc(10, 10, "t");
    doc.BeginGroup("open");
    doc.Text(1, 1, "x", 12, "start", "fill=\"#fff\"");
    EXPECT_EQ(clitest::CheckMarkup(doc.Finish()), "") << "open groups are closed and fill is not doubled";
}

} // namespace
