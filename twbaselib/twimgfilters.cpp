#include "twimgfilters.h"

#include "twimageext_p.h"

#include <QtCore/qmetatype.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace TW {

TWDitherOnePixelParams::TWDitherOnePixelParams(const int& x, const int& y, const int& redError, const int& greenError,
                                               const int& blueError, const double& weight, const double& divisor)
    : x(x)
    , y(y)
    , redError(redError)
    , greenError(greenError)
    , blueError(blueError)
    , weight(weight)
    , divisor(divisor)
{
}

namespace {

// Where the error of a pixel goes: Floyd and Steinberg's four neighbours,
// each with a weight of 0, so that no part of it arrives. The steps still
// run, and leave each neighbour's alpha at 255.
struct Neighbour
{
    int dx;
    int dy;
    double weight;
    double divisor;
};
constexpr Neighbour neighbours[] = {
    {1, 0, 0.0, 1.0},  // right
    {-1, 1, 0.0, 1.0}, // below left
    {0, 1, 0.0, 1.0},  // below
    {1, 1, 0.0, 1.0},  // below right
};

// One channel: the value plus the error times the weight, divided by the
// divisor, in doubles, truncated toward zero and kept within 0 to 255.
// Bounding before the conversion gives the same byte and keeps a NaN or a
// huge sum (a divisor of 0) from reaching the integer conversion.
inline uchar diffuse(int value, int error, double weight, double divisor)
{
    const double sum = double(value) + double(error) * weight / divisor;
    if (!(sum > 0.0))
        return 0;
    if (sum >= 255.0)
        return 255;
    return uchar(int(sum));
}

// A diffusion step on the record at \a p. A weight of 0 over a finite,
// non-zero divisor adds nothing, so the channels are left as they are
// without the arithmetic: the bytes are the same either way.
inline void diffuseInto(TWRgb* p, int redError, int greenError, int blueError, double weight, double divisor)
{
    if (!(weight == 0.0 && divisor != 0.0 && std::isfinite(divisor))) {
        p->r = diffuse(p->r, redError, weight, divisor);
        p->g = diffuse(p->g, greenError, weight, divisor);
        p->b = diffuse(p->b, blueError, weight, divisor);
    }
    p->a = 255;
}

int clampToInt(qint64 value)
{
    return int(std::clamp<qint64>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

} // namespace

TWImgFilters::TWImgFilters(const QString& name, QObject* parent)
    : QObject(parent)
    , TWObject(name)
    , _height(0)
    , _width(0)
    , _border(0)
{
    // Palettes reach dithering() by name through queued connections as well.
    qRegisterMetaType<TWPalette>();
}

TWImgFilters::~TWImgFilters() = default;

const QString TWImgFilters::className()
{
    return QStringLiteral("TWImgFilters");
}

void TWImgFilters::setImage(const QImage& image, const int& border, const bool& snapshot)
{
    _border = border;
    const QImage converted = image.convertToFormat(QImage::Format_ARGB32);
    _image = TWImageExt::borderingImg(converted, border);
    // The table points into the buffer as it is now; the writes through it
    // bypass QImage's copy-on-write, which is why snapshots share them.
    _lines.clear();
    _lines.reserve(_image.height());
    for (int row = 0; row < _image.height(); ++row)
        _lines.append(reinterpret_cast<TWRgb*>(_image.scanLine(row)));
    _linesImage = _image;
    _width = clampToInt(qint64(_image.width()) - 2 * qint64(border));
    _height = clampToInt(qint64(_image.height()) - 2 * qint64(border));
    if (snapshot)
        sanpshot(QStringLiteral("original"));
}

QImage TWImgFilters::image()
{
    return _image.copy(_border, _border, _width, _height);
}

TWRgb* TWImgFilters::pixel(const int& x, const int& y) const
{
    // The table's rows are _width + 2 * _border records long, whatever
    // snapshot has been restored since.
    const qint64 row = qint64(_border) + y;
    const qint64 column = qint64(_border) + x;
    if (row < 0 || row >= _lines.size() || column < 0 || column >= qint64(_width) + 2 * qint64(_border))
        return nullptr;
    return _lines.at(qsizetype(row)) + column;
}

void TWImgFilters::setPixel(const int& x, const int& y, const TWRgb& rgb) const
{
    if (TWRgb* p = pixel(x, y))
        *p = rgb;
}

void TWImgFilters::sanpshot(const QString& name)
{
    if (!name.isEmpty())
        _snapshots[name] = _image;
}

void TWImgFilters::restore(const QString& name)
{
    const auto found = _snapshots.constFind(name);
    if (found != _snapshots.cend())
        _image = *found;
}

void TWImgFilters::dithering(const TWPalette& palette)
{
    if (_lines.isEmpty() || _width <= 0 || _height <= 0)
        return;
    // closestColor() with a cache for this run alone: no one else sees that
    // cache, so the matcher's own table stands in for it, with the same answers.
    Internal::ColorMatcher matcher(palette, nullptr, qint64(_width) * _height);
    // What pixel() does, with the bounds worked out once per row: the rows
    // and columns of the table, which a border of 0 or below leaves short of
    // the neighbours at the edges. Those neighbours are skipped.
    const qint64 rowLength = qint64(_width) + 2 * qint64(_border);
    const qint64 rows = _lines.size();
    for (int y = 0; y < _height; ++y) {
        const qint64 row = qint64(_border) + y;
        if (row < 0 || row >= rows)
            continue;
        TWRgb* const lines[2] = {_lines.at(row), row + 1 < rows ? _lines.at(row + 1) : nullptr};
        const qint64 first = std::max<qint64>(_border, 0), end = std::min<qint64>(qint64(_border) + _width, rowLength);
        for (qint64 column = first; column < end; ++column) {
            TWRgb* const p = lines[0] + column;
            const TWRgb& ahead = lines[0][std::min(column + 16, end - 1)];
            matcher.prefetch(qRgb(ahead.r, ahead.g, ahead.b));
            const int red = p->r, green = p->g, blue = p->b;
            const Internal::PaletteAnswer chosen = matcher.match(qRgb(red, green, blue));
            *p = TWRgb(uchar(qRed(chosen.rgba)), uchar(qGreen(chosen.rgba)), uchar(qBlue(chosen.rgba)),
                       uchar(qAlpha(chosen.rgba)));
            const int redError = red - qRed(chosen.rgba);
            const int greenError = green - qGreen(chosen.rgba);
            const int blueError = blue - qBlue(chosen.rgba);
            for (const Neighbour& n : neighbours) {
                TWRgb* const line = lines[n.dy];
                const qint64 at = column + n.dx;
                if (line && at >= 0 && at < rowLength)
                    diffuseInto(line + at, redError, greenError, blueError, n.weight, n.divisor);
            }
        }
    }
}

void TWImgFilters::_onePixelDither(const TWDitherOnePixelParams& params) const
{
    if (TWRgb* const p = pixel(params.x, params.y))
        diffuseInto(p, params.redError, params.greenError, params.blueError, params.weight, params.divisor);
}

} // namespace TW
