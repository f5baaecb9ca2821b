// The SVG writer; see svgwriter.h.
#include "figures/svgwriter.h"

#include <algorithm>
#include <cmath>

#include <math.h>
#include <stdio.h>

namespace oisverify
{

namespace
{

// Coordinates with two decimals: sub-pixel enough for any screen, and stable text.
std::string Coord(double value)
{
    char text[32];
    snprintf(text, sizeof(text), "%.2f", isfinite(value) ? value : 0.0);
    return text;
}

// Whether an attribute list such as 'fill="#fff" font-weight="bold"' sets the named attribute.
bool SetsAttribute(const std::string& attributes, const std::string& name)
{
    const std::string key = name + "=\"";
    for (size_t at = attributes.find(key); at != std::string::npos; at = attributes.find(key, at + 1))
    {
        if (at == 0 || attributes[at - 1] == ' ')
        {
            return true;
        }
    }
    return false;
}

} // namespace

std::string XmlEscape(const std::string& text)
{
    std::string escaped;
    for (char c : text)
    {
        switch (c)
        {
        case '&': escaped += "&amp;"; break;
        case '<': escaped += "&lt;"; break;
        case '>': escaped += "&gt;"; break;
        case '"': escaped += "&quot;"; break;
        case '\'': escaped += "&#39;"; break;
        default: escaped.push_back(c); break;
        }
    }
    return escaped;
}

std::string ShortNumber(double value, int decimals)
{
    char text[48];
    snprintf(text, sizeof(text), "%.*f", decimals, value);
    std::string number(text);
    if (number.find('.') != std::string::npos)
    {
        number.erase(number.find_last_not_of('0') + 1);
        if (number.back() == '.')
        {
            number.pop_back();
        }
    }
    return (number == "-0") ? "0" : number;
}

std::vector<double> NiceTicks(double low, double high, int count)
{
    std::vector<double> ticks;
    if (!isfinite(low) || !isfinite(high) || !(high > low) || count < 1)
    {
        return ticks;
    }
    const double rough    = (high - low) / count;
    const int    exponent = static_cast<int>(floor(log10(rough)));
    const double power    = pow(10.0, abs(exponent));
    double       factor   = 1.0;
    for (double candidate : { 1.0, 2.0, 5.0, 10.0 })
    {
        factor = candidate;
        if ((exponent < 0 ? candidate / power : candidate * power) >= rough)
        {
            break;
        }
    }
    // Ticks as whole multiples of factor scaled by an exact power of ten, so that 0.6 comes out as
    // the double nearest 0.6 rather than as 0.2 + 0.2 + 0.2.
    const auto tickAt = [&](double k) { return (exponent < 0) ? k * factor / power : k * factor * power; };
    const double step  = tickAt(1.0);
    for (double k = ceil(low / step); tickAt(k) <= high + step * 1e-9; k += 1.0)
    {
        ticks.push_back(tickAt(k) == 0.0 ? 0.0 : tickAt(k));
    }
    return ticks;
}

LinearScale::LinearScale(double dataLow, double dataHigh, double pixelLow, double pixelHigh)
    : m_dataLow(dataLow), m_pixelLow(pixelLow),
      m_factor((dataHigh != dataLow) ? (pixelHigh - pixelLow) / (dataHigh - dataLow) : 0.0)
{
}

double LinearScale::operator()(double value) const
{
    return m_pixelLow + (value - m_dataLow) * m_factor;
}

SvgDocument::SvgDocument(double width, double height, const std::string& title)
{
    m_header = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + Coord(width) + "\" height=\"" + Coord(height) +
               "\" viewBox=\"0 0 " + Coord(width) + " " + Coord(height) +
               "\" font-family=\"Helvetica, Arial, sans-serif\">\n<title>" + XmlEscape(title) + "</title>\n";
    Rect(0, 0, width, height, "#ffffff");
}

void SvgDocument::Rect(double x, double y, double width, double height, const std::string& fill,
                       const std::string& extra)
{
    m_body += "<rect x=\"" + Coord(x) + "\" y=\"" + Coord(y) + "\" width=\"" + Coord(width < 0 ? 0 : width) +
              "\" height=\"" + Coord(height < 0 ? 0 : height) + "\" fill=\"" + fill + "\"" +
              (extra.empty() ? "" : " " + extra) + "/>\n";
}

void SvgDocument::Line(double x1, double y1, double x2, double y2, const std::string& stroke, double strokeWidth,
                       const std::string& extra)
{
    m_body += "<line x1=\"" + Coord(x1) + "\" y1=\"" + Coord(y1) + "\" x2=\"" + Coord(x2) + "\" y2=\"" + Coord(y2) +
              "\" stroke=\"" + stroke + "\" stroke-width=\"" + Coord(strokeWidth) + "\"" +
              (extra.empty() ? "" : " " + extra) + "/>\n";
}

void SvgDocument::Circle(double cx, double cy, double r, const std::string& fill, const std::string& extra)
{
    m_body += "<circle cx=\"" + Coord(cx) + "\" cy=\"" + Coord(cy) + "\" r=\"" + Coord(r) + "\" fill=\"" + fill +
              "\"" + (extra.empty() ? "" : " " + extra) + "/>\n";
}

void SvgDocument::Polyline(const std::vector<std::pair<double, double>>& points, const std::string& stroke,
                           double strokeWidth, const std::string& extra)
{
    std::string list;
    for (const auto& point : points)
    {
        list += (list.empty() ? "" : " ") + Coord(point.first) + "," + Coord(point.second);
    }
    m_body += "<polyline points=\"" + list + "\" fill=\"none\" stroke=\"" + stroke + "\" stroke-width=\"" +
              Coord(strokeWidth) + "\"" + (extra.empty() ? "" : " " + extra) + "/>\n";
}

void SvgDocument::Text(double x, double y, const std::string& text, double size, const std::string& anchor,
                       const std::string& extra)
{
    m_body += "<text x=\"" + Coord(x) + "\" y=\"" + Coord(y) + "\" font-size=\"" + Coord(size) +
              "\" text-anchor=\"" + anchor + "\"" + (SetsAttribute(extra, "fill") ? "" : " fill=\"#1f2328\"") +
              (extra.empty() ? "" : " " + extra) + ">" +
              XmlEscape(text) + "</text>\n";
}

void SvgDocument::BeginGroup(const std::string& id, const std::string& extra)
{
    m_body += "<g id=\"" + XmlEscape(id) + "\"" + (extra.empty() ? "" : " " + extra) + ">\n";
    m_openGroups++;
}

void SvgDocument::EndGroup()
{
    if (m_openGroups > 0)
    {
        m_body += "</g>\n";
        m_openGroups--;
    }
}

std::string SvgDocument::Finish()
{
    while (m_openGroups > 0)
    {
        EndGroup();
    }
    return m_header + m_body + "</svg>\n";
}

void AxisSpan::Add(double value)
{
    if (std::isfinite(value))
    {
        low  = std::min(low, value);
        high = std::max(high, value);
    }
}

void AxisSpan::Settle(double minSpan)
{
    if (!(high >= low))
    {
        low  = 0.0;
        high = 1.0;
    }
    const double centre = 0.5 * (low + high);
    const double half   = 0.5 * std::max(high - low, minSpan) * 1.2;
    low                 = centre - half;
    high                = centre + half;
}

} // namespace oisverify
