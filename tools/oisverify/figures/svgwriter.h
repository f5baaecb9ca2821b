// A small SVG writer for the run's figures: shapes, text and groups appended to a document with
// coordinates in user units (pixels at 100 %), text escaped for XML. No XML declaration, so the
// same text is a standalone .svg file and can be inlined into an HTML page.
#ifndef ZELK_TOOLS_OISVERIFY_SVGWRITER_H
#define ZELK_TOOLS_OISVERIFY_SVGWRITER_H

#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace oisverify
{

// Text with &, <, >, " and ' replaced by their XML entities.
std::string XmlEscape(const std::string& text);

// Round tick positions (1, 2 or 5 times a power of ten apart) covering [low, high] with about
// `count` ticks; empty for an empty or non-finite range.
std::vector<double> NiceTicks(double low, double high, int count);

// The interval a figure axis shows: the finite values added, then widened to a minimum span and
// padded by a tenth on each side (0..1 when nothing finite was added).
struct AxisSpan
{
    double low  = std::numeric_limits<double>::infinity();
    double high = -std::numeric_limits<double>::infinity();
    void   Add(double value);
    void   Settle(double minSpan);
};

// Maps a data interval onto a pixel interval (either may be reversed, e.g. y growing upwards).
class LinearScale
{
public:
    LinearScale(double dataLow, double dataHigh, double pixelLow, double pixelHigh);
    double operator()(double value) const;

private:
    double m_dataLow;
    double m_pixelLow;
    double m_factor;
};

class SvgDocument
{
public:
    SvgDocument(double width, double height, const std::string& title);

    void Rect(double x, double y, double width, double height, const std::string& fill,
              const std::string& extra = "");
    void Line(double x1, double y1, double x2, double y2, const std::string& stroke, double strokeWidth = 1.0,
              const std::string& extra = "");
    void Circle(double cx, double cy, double r, const std::string& fill, const std::string& extra = "");
    void Polyline(const std::vector<std::pair<double, double>>& points, const std::string& stroke,
                  double strokeWidth, const std::string& extra = "");
    // anchor: start, middle or end; extra: further attributes, e.g. font-weight="bold".
    void Text(double x, double y, const std::string& text, double size = 12.0, const std::string& anchor = "start",
              const std::string& extra = "");
    // Groups nest; every Begin needs its End. id names the series or panel inside (for scripts).
    void BeginGroup(const std::string& id, const std::string& extra = "");
    void EndGroup();

    // The whole document; closes groups left open.
    std::string Finish();

private:
    std::string m_body;
    std::string m_header;
    int         m_openGroups = 0;
};

// A number with up to `decimals` decimals and no trailing zeros ("12.5", "3", "-0.25").
std::string ShortNumber(double value, int decimals = 2);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_SVGWRITER_H
