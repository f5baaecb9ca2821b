// The summary page's SR table, notes and warnings: the suppression of the applied shake, the
// reference session and the stabilisation gain with the numbers and words the console prints.
#include <gtest/gtest.h>

#include <stdio.h>
#include <stdlib.h>

#include "clitestsupport.h"
#include "report/htmlsummary.h"
#include "report/runreport.h"
#include "figures/svgwriter.h"

namespace
{

using oisverify::RunConfig;
using oisverify::RunResult;
using oisverify::Verdict;

// A verified simulator run with truth, suppression and a measured reference.
RunResult SuppressedResult()
{
    RunResult result;
    result.finished         = true;
    result.finalState       = 4;
    result.requests         = 160;
    result.horSrDb          = 24.1f;
    result.verSrDb          = 17.5f;
    result.events.hasSr     = true;
    result.events.horBlurPx = 0.5f;
    result.events.verBlurPx = 1.25f;
    result.hasTruth         = true;
    result.truth.horSrDb    = 24.0f;
    result.truth.verSrDb    = 17.55f;
    result.truth.horBlurPx  = 0.4f;
    result.truth.verBlurPx  = 1.3f;
    oisverify::TrueSuppression& s = result.suppression;
    s.known                       = true;
    s.appliedShakePx              = { 60.25f, 58.0f };
    s.residualBlurPx              = { 0.4f, 1.3f };
    s.trueSuppressionDb           = { 12.34f, 20.5f };
    oisverify::ReferenceResult& ref = result.reference;
    ref.ran                         = true;
    ref.measured                    = true;
    ref.finalState                  = 4;
    ref.referenceBlurPx             = { 150.0f, 149.5f };
    ref.referenceSrDb               = { 4.02f, 4.03f };
    ref.hasGain                     = true;
    ref.stabilisationGainDb         = { 20.08f, 13.47f };
    return result;
}

Verdict FailVerdict()
{
    Verdict verdict;
    verdict.pass     = false;
    verdict.headline = "horizontal suppression low";
    verdict.notes    = { "vertical: the node's SR reads 2.58 dB <high> & fails" };
    return verdict;
}

std::string Page(const RunConfig& config, const RunResult& result, const Verdict& verdict)
{
    return oisverify::SummaryHtml(config, result, verdict, { "", "", "", "no crop", "" }, { "index.html" });
}

// What a console printer writes.
template <typename Print>
std::string Console(Print print)
{
    char*  pText  = nullptr;
    size_t length = 0;
    FILE*  pOut   = open_memstream(&pText, &length);
    print(pOut);
    fclose(pOut);
    const std::string text(pText, length);
    free(pText);
    return text;
}

// The console's line that starts with this label, without the label and the spaces after it.
std::string ConsoleText(const std::string& output, const std::string& label)
{
    const std::string console = "\n" + output;
    const size_t      start   = console.find("\n  " + label);
    if (start == std::string::npos)
    {
        return "";
    }
    const size_t text = console.find_first_not_of(' ', start + 3 + label.size());
    return console.substr(text, console.find('\n', text) - text);
}

TEST(SummaryPageSr, CarriesSuppressionAppliedShakeReferenceAndGain)
{
    RunConfig config;
    config.srLimitDb         = 18.0;
    const RunResult   result = SuppressedResult();
    const std::string html   = Page(config, result, FailVerdict());
    EXPECT_EQ(clitest::CheckMarkup(html), "");
    EXPECT_NE(html.find("<tr><th>axis</th><th>node SR</th><th>suppression</th><th>true SR</th><th>difference</th>"
                        "<th>node blur</th><th>true blur</th><th>applied shake</th><th>reference SR</th>"
                        "<th>reference blur</th><th>stabilisation</th></tr>"),
              std::string::npos);
    EXPECT_NE(html.find("<tr><td>horizontal</td><td class=\"good\">24.10 dB</td><td class=\"bad\">12.34 dB</td>"
                        "<td>24.00 dB</td><td>+0.10 dB</td><td>0.50 px</td><td>0.40 px</td><td>60.25 px</td>"
                        "<td>4.02 dB</td><td>150.00 px</td><td>20.08 dB</td></tr>"),
              std::string::npos);
    EXPECT_NE(html.find("<tr><td>vertical</td><td class=\"bad\">17.50 dB</td><td class=\"good\">20.50 dB</td>"
                        "<td>17.55 dB</td><td>-0.05 dB</td><td>1.25 px</td><td>1.30 px</td><td>58.00 px</td>"
                        "<td>4.03 dB</td><td>149.50 px</td><td>13.47 dB</td></tr>"),
              std::string::npos);
    EXPECT_NE(html.find("<p class=\"suppression\">suppression of the applied shake (60.25 x 58.00 px over the same "
                        "frames): 10 log10(applied / true blur) + 4 dB</p>"),
              std::string::npos);
    EXPECT_NE(html.find("<p class=\"reference\">reference: OIS off, measured by the node first: blur 150.00 / "
                        "149.50 px, SR 4.02 / 4.03 dB</p>"),
              std::string::npos);
    EXPECT_NE(html.find("<p class=\"reference\">stabilisation 20.08 dB horizontal, 13.47 dB vertical: 10 "
                        "log10(unstabilised blur / stabilised blur)</p>"),
              std::string::npos);
    EXPECT_NE(html.find("<h2>Notes</h2>\n<ul>\n<li>vertical: the node&#39;s SR reads 2.58 dB &lt;high&gt; &amp; "
                        "fails</li>\n</ul>"),
              std::string::npos);
    EXPECT_EQ(html.find("<h2>Warnings</h2>"), std::string::npos) << "the default run warns of nothing";

    // The same words as the console's, which prints them under its table.
    const std::string console = Console([&](FILE* pOut) { oisverify::PrintVerdict(pOut, config, result,
                                                                                   FailVerdict(), false); });
    const size_t      line    = console.find("suppression of the applied shake (");
    ASSERT_NE(line, std::string::npos) << console;
    const std::string rule = console.substr(line, console.find('\n', line) - line);
    EXPECT_NE(html.find("<p class=\"suppression\">" + rule + "</p>"), std::string::npos) << rule;
    EXPECT_NE(html.find("reference: " + ConsoleText(console, "reference ") + "</p>"), std::string::npos);
    EXPECT_NE(html.find("stabilisation " + ConsoleText(console, "stabilisation ") + "</p>"), std::string::npos);
}

TEST(SummaryPageSr, WithoutTruthOrReferenceKeepsTheNodeColumnsOnly)
{
    RunConfig config;
    RunResult result = SuppressedResult();
    result.hasTruth  = false;
    result.suppression.known = false;
    result.reference = oisverify::ReferenceResult();
    const std::string html   = Page(config, result, Verdict());
    EXPECT_NE(html.find("<tr><th>axis</th><th>node SR</th><th>node blur</th></tr>\n<tr><td>horizontal</td>"
                        "<td class=\"good\">24.10 dB</td><td>0.50 px</td></tr>"),
              std::string::npos);
    EXPECT_EQ(html.find("class=\"suppression\""), std::string::npos);
    EXPECT_EQ(html.find("class=\"reference\""), std::string::npos);
    EXPECT_EQ(html.find("<h2>Notes</h2>"), std::string::npos);
}

// A reference session without SR: the page says why and lists the node's errors there, with the
// console's words; the stabilised session's table keeps no reference columns.
TEST(SummaryPageSr, ReferenceWithoutSrSaysWhy)
{
    RunConfig config;
    RunResult result                  = SuppressedResult();
    result.reference.measured         = false;
    result.reference.hasGain          = false;
    result.reference.finalState       = -13;
    result.reference.errors           = { "verify time 720 ms > 688 ms" };
    const std::string html            = Page(config, result, Verdict());
    EXPECT_EQ(clitest::CheckMarkup(html), "");
    EXPECT_EQ(html.find("<th>reference SR</th>"), std::string::npos);
    EXPECT_EQ(html.find("<th>stabilisation</th>"), std::string::npos);
    const std::string console =
        Console([&](FILE* pOut) { oisverify::PrintReference(pOut, result); });
    const std::string why = ConsoleText(console, "reference ");
    ASSERT_EQ(why.rfind("the OIS-off session gave no SR (error -13: ", 0), 0u) << why;
    EXPECT_NE(html.find("<p class=\"reference\">reference: " + oisverify::XmlEscape(why) + "</p>"), std::string::npos)
        << why;
    EXPECT_NE(html.find("<p class=\"reference\">reference error: <code>verify time 720 ms &gt; 688 ms</code></p>"),
              std::string::npos);

    result.events.hasSr         = false;
    const std::string noSr      = Page(config, result, Verdict());
    EXPECT_NE(noSr.find("<p>The node published no SR.</p>\n<p class=\"reference\">reference: the OIS-off session"),
              std::string::npos);
}

// The header's warnings, in the order and words the console prints them.
TEST(SummaryPageWarnings, ListsTheHeadersWarnings)
{
    RunConfig config;
    config.source                        = oisverify::FrameSource::Simulator;
    config.scenario.shake.amplitudeXPx   = 100.0;
    config.scenario.shake.amplitudeYPx   = 100.0;
    config.params.verdictFrames          = 60; // 1000 ms at 60 fps, beyond the 688 ms limit
    config.warnings                      = { "no module ID <given>" };
    const std::vector<std::string> warnings = oisverify::RunWarnings(config);
    ASSERT_EQ(warnings.size(), 3u);
    EXPECT_EQ(warnings[0].rfind("expect error -13: ", 0), 0u);
    EXPECT_EQ(warnings[1].rfind("the shake is 100.00 x 100.00 px, not the node's fixed reference of 181.248 px: the "
                                "node's SR reads 10 log10(181.248 / shake) = +2.58 / +2.58 dB off",
                                0),
              0u)
        << warnings[1];
    EXPECT_EQ(warnings[2], "no module ID <given>");

    const std::string html = Page(config, SuppressedResult(), FailVerdict());
    EXPECT_EQ(clitest::CheckMarkup(html), "");
    std::string list = "<h2>Warnings</h2>\n<ul>\n";
    for (const std::string& warning : warnings)
    {
        list += "<li>" + oisverify::XmlEscape(warning) + "</li>\n";
    }
    EXPECT_NE(html.find(list + "</ul>"), std::string::npos);

    const std::string header = Console([&](FILE* pOut) { oisverify::PrintRunHeader(pOut, config); });
    size_t            at     = 0;
    for (const std::string& warning : warnings)
    {
        at = header.find("  warning       " + warning + "\n", at);
        EXPECT_NE(at, std::string::npos) << warning;
    }

    config.scenario.shake.amplitudeXPx = 0.0;
    EXPECT_EQ(oisverify::RunWarnings(config)[1].rfind("no shake on the horizontal axis: ", 0), 0u);
    config.source = oisverify::FrameSource::Replay;
    EXPECT_EQ(oisverify::RunWarnings(config).size(), 2u) << "recorded frames have no shake to warn of";
}

} // namespace
