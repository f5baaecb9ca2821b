// The chart picture; see chartpicture.h.
#include "figures/chartpicture.h"

#include <math.h>
#include <png.h>
#include <stdio.h>

#include <algorithm>

#include "figures/svgwriter.h"

namespace oisverify
{

namespace
{

const char kCentreColour[] = "#0969da";
const char kSpreadColour[] = "#e16f24";

const char* const kCircleNames[] = { "up", "down", "left", "right" };

// The crop is shown between these sizes on screen, whatever its side.
constexpr double kMinShownPx  = 400.0;
constexpr double kMaxShownPx  = 720.0;
constexpr double kMarginPx    = 10.0;
constexpr double kTitlePx     = 34.0;
constexpr double kFooterPx    = 96.0;
constexpr double kCrossArmPx  = 12.0;
constexpr double kCrossGapPx  = 4.0;
constexpr double kMinWidthPx  = 720.0;

const sim::Point& CircleOf(const sim::FourCentres& centres, int circle)
{
    const sim::Point* points[] = { &centres.up, &centres.down, &centres.left, &centres.right };
    return *points[circle];
}

bool HasRing(const RunResult& result)
{
    return std::any_of(result.frames.begin(), result.frames.end(), [](const RunFrame& frame) { return frame.inRing; });
}

// Frames whose centres count: successful ones of the final SR's window, or of the whole run.
std::vector<const RunFrame*> SpreadFrames(const RunResult& result)
{
    const bool                   ring = HasRing(result);
    std::vector<const RunFrame*> frames;
    for (const RunFrame& frame : result.frames)
    {
        if (frame.measured.algoReturn == 0 && (!ring || frame.inRing))
        {
            frames.push_back(&frame);
        }
    }
    return frames;
}

void AppendPng(png_structp pPng, png_bytep pData, png_size_t length)
{
    static_cast<std::string*>(png_get_io_ptr(pPng))->append(reinterpret_cast<const char*>(pData), length);
}

void IgnorePngFlush(png_structp) {}

struct PngFailure
{
    std::string message;
};

void OnPngError(png_structp pPng, png_const_charp pMessage)
{
    static_cast<PngFailure*>(png_get_error_ptr(pPng))->message = pMessage;
    png_longjmp(pPng, 1);
}

void OnPngWarning(png_structp, png_const_charp) {}

std::string SpreadText(const char* pName, const CircleSpread& spread)
{
    if (spread.count == 0)
    {
        return std::string(pName) + ": not measured";
    }
    char text[160];
    snprintf(text, sizeof(text), "%s: centre %.2f, %.2f px; spread %.2f x %.2f px over %u frames", pName,
             spread.meanX, spread.meanY, spread.highX - spread.lowX, spread.highY - spread.lowY, spread.count);
    return text;
}

void DrawCircle(SvgDocument& svg, const std::vector<const RunFrame*>& frames, const CircleSpread& spread,
                int circle, const LinearScale& x, const LinearScale& y)
{
    const std::string id = std::string("chart-") + kCircleNames[circle];
    svg.BeginGroup(id);
    svg.BeginGroup(id + "-centres");
    for (const RunFrame* pFrame : frames)
    {
        const sim::Point& point = CircleOf(pFrame->measured.centres, circle);
        svg.Circle(x(point.x), y(point.y), 1.3, kCentreColour, "fill-opacity=\"0.8\"");
    }
    svg.EndGroup();
    if (spread.count != 0)
    {
        const double cx = x(spread.meanX), cy = y(spread.meanY);
        // The cross leaves its middle open: a good module's dots and box fit in a few pixels there.
        for (double side : { -1.0, 1.0 })
        {
            svg.Line(cx + side * kCrossGapPx, cy, cx + side * kCrossArmPx, cy, kSpreadColour, 1.5);
            svg.Line(cx, cy + side * kCrossGapPx, cx, cy + side * kCrossArmPx, kSpreadColour, 1.5);
        }
        svg.BeginGroup(id + "-spread");
        svg.Rect(x(spread.lowX), y(spread.lowY), x(spread.highX) - x(spread.lowX), y(spread.highY) - y(spread.lowY),
                 "none", "stroke=\"" + std::string(kSpreadColour) + "\" stroke-width=\"1\"");
        svg.EndGroup();
    }
    svg.EndGroup();
}

} // namespace

bool DecodeCropYuv(const std::string& bytes, GreyImage* pImage, std::string* pError)
{
    // The node computes the length as 3 c^2 / 2 in single precision and truncates it.
    const double side = floor(sqrt(static_cast<double>(bytes.size()) / 1.5) + 0.5);
    if (bytes.empty() || side > kMaxCropSidePx ||
        static_cast<size_t>(floor(1.5 * side * side)) != bytes.size())
    {
        *pError = "a crop file of " + std::to_string(bytes.size()) +
                  " bytes is no square grey-chroma NV12 image of up to " + std::to_string(kMaxCropSidePx) +
                  " pixels a side";
        return false;
    }
    const uint32_t c = static_cast<uint32_t>(side);
    pImage->width    = c;
    pImage->height   = c;
    pImage->pixels.assign(bytes.begin(), bytes.begin() + static_cast<size_t>(c) * c);
    return true;
}

bool EncodeGreyPng(const GreyImage& image, std::string* pPng, std::string* pError)
{
    if (image.width == 0 || image.height == 0 ||
        image.pixels.size() != static_cast<size_t>(image.width) * image.height)
    {
        *pError = "no image to encode";
        return false;
    }
    std::vector<png_bytep> rows(image.height);
    for (uint32_t row = 0; row < image.height; row++)
    {
        rows[row] = const_cast<png_bytep>(image.pixels.data() + static_cast<size_t>(row) * image.width);
    }
    pPng->clear();
    PngFailure  failure;
    png_structp pWriter = png_create_write_struct(PNG_LIBPNG_VER_STRING, &failure, OnPngError, OnPngWarning);
    png_infop   pInfo   = (pWriter != nullptr) ? png_create_info_struct(pWriter) : nullptr;
    if (pInfo == nullptr)
    {
        png_destroy_write_struct(&pWriter, nullptr);
        *pError = "the PNG encoder could not start";
        return false;
    }
    // libpng reports errors by a long jump back here: nothing with a destructor is created from
    // this point on.
    if (setjmp(png_jmpbuf(pWriter)) != 0)
    {
        png_destroy_write_struct(&pWriter, &pInfo);
        *pError = "PNG encoding failed: " + failure.message;
        return false;
    }
    png_set_write_fn(pWriter, pPng, AppendPng, IgnorePngFlush);
    png_set_IHDR(pWriter, pInfo, image.width, image.height, 8, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(pWriter, pInfo);
    png_write_image(pWriter, rows.data());
    png_write_end(pWriter, pInfo);
    png_destroy_write_struct(&pWriter, &pInfo);
    return true;
}

std::string Base64(const std::string& bytes)
{
    static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string       text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3)
    {
        const size_t   left  = bytes.size() - i;
        const uint32_t chunk = (static_cast<uint8_t>(bytes[i]) << 16) |
                               ((left > 1 ? static_cast<uint8_t>(bytes[i + 1]) : 0u) << 8) |
                               (left > 2 ? static_cast<uint8_t>(bytes[i + 2]) : 0u);
        text.push_back(kAlphabet[(chunk >> 18) & 63]);
        text.push_back(kAlphabet[(chunk >> 12) & 63]);
        text.push_back(left > 1 ? kAlphabet[(chunk >> 6) & 63] : '=');
        text.push_back(left > 2 ? kAlphabet[chunk & 63] : '=');
    }
    return text;
}

CircleSpread SpreadOf(const RunResult& result, int circle)
{
    CircleSpread spread;
    for (const RunFrame* pFrame : SpreadFrames(result))
    {
        const sim::Point& point = CircleOf(pFrame->measured.centres, circle);
        if (!isfinite(point.x) || !isfinite(point.y))
        {
            continue;
        }
        spread.lowX  = (spread.count == 0) ? point.x : std::min(spread.lowX, point.x);
        spread.highX = (spread.count == 0) ? point.x : std::max(spread.highX, point.x);
        spread.lowY  = (spread.count == 0) ? point.y : std::min(spread.lowY, point.y);
        spread.highY = (spread.count == 0) ? point.y : std::max(spread.highY, point.y);
        spread.meanX += point.x;
        spread.meanY += point.y;
        spread.count++;
    }
    if (spread.count != 0)
    {
        spread.meanX /= spread.count;
        spread.meanY /= spread.count;
    }
    return spread;
}

std::string ChartSvg(const GreyImage& image, const std::string& png, const RunResult& result)
{
    const double side  = image.width;
    const double shown = std::max(kMinShownPx, std::min(kMaxShownPx, side));
    // Wide enough for the legend and the spread lines whatever the crop's size.
    const double width = std::max(shown + 2 * kMarginPx, kMinWidthPx);
    SvgDocument  svg(width, kTitlePx + shown + kFooterPx, "First measured crop with the measured centres");
    svg.Text(kMarginPx, 24, "First measured crop, " + ShortNumber(side, 0) + " px square, with the measured centres",
             16, "start", "font-weight=\"bold\"");
    svg.Image(kMarginPx, kTitlePx, shown, shown, "data:image/png;base64," + Base64(png), "id=\"chart-image\"");
    // The algorithm's coordinates put pixel i's centre at i; in the picture that pixel spans i..i+1.
    const LinearScale x(-0.5, side - 0.5, kMarginPx, kMarginPx + shown);
    const LinearScale y(-0.5, side - 0.5, kTitlePx, kTitlePx + shown);
    const std::vector<const RunFrame*> frames = SpreadFrames(result);
    for (int circle = 0; circle < 4; circle++)
    {
        DrawCircle(svg, frames, SpreadOf(result, circle), circle, x, y);
    }
    const double footer = kTitlePx + shown + 18;
    svg.Circle(kMarginPx + 5, footer - 4, 3, kCentreColour);
    svg.Text(kMarginPx + 14, footer, "centre per frame", 12);
    svg.Line(kMarginPx + 130, footer - 4, kMarginPx + 148, footer - 4, kSpreadColour, 1.5);
    svg.Text(kMarginPx + 154, footer,
             std::string("mean centre; box: peak-to-peak spread over ") +
                 (HasRing(result) ? "the frames of the final SR" : "every measured frame"),
             12);
    for (int circle = 0; circle < 4; circle++)
    {
        svg.Text(kMarginPx, footer + 20 + 16 * circle, SpreadText(kCircleNames[circle], SpreadOf(result, circle)), 12);
    }
    return svg.Finish();
}

} // namespace oisverify
