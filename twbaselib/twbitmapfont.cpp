#include "twbitmapfont.h"

#include "twimageext.h"
#include "twutils.h"

#include <QtGui/qpainter.h>

#include <limits>

namespace TW {

TWBitmapFont::TWBitmapFont(const QString& name, QObject* parent)
    : QObject(parent)
    , TWObject(name)
    , _backgroundColor(255, 255, 255, 255)
    , _textColor(0, 0, 0, 255)
{
}

// The copy is a new named object: it registers the source's object name
// (made unique like any other) rather than sharing the source's own name.
TWBitmapFont::TWBitmapFont(const TWBitmapFont& other)
    : QObject(other.parent())
    , TWObject(other.objectName())
    , _fontBitmap(other._fontBitmap)
    , _fontBitmaps(other._fontBitmaps)
    , _chartable(other._chartable)
    , _chartables(other._chartables)
    , _backgroundColor(other._backgroundColor)
    , _textColor(other._textColor)
{
}

// The font and the QObject side follow the source; the name, logger and last
// error are the target's own and stay.
TWBitmapFont& TWBitmapFont::operator=(const TWBitmapFont& other)
{
    if (this == &other)
        return *this;
    _fontBitmap = other._fontBitmap;
    _fontBitmaps = other._fontBitmaps;
    _chartable = other._chartable;
    _chartables = other._chartables;
    _backgroundColor = other._backgroundColor;
    _textColor = other._textColor;
    setParent(other.parent());
    setObjectName(other.objectName());
    return *this;
}

TWBitmapFont::~TWBitmapFont() = default;

const QString TWBitmapFont::className()
{
    return QStringLiteral("TWBitmapFont");
}

bool TWBitmapFont::loadBitmaps(const QString& fileName, const int& width, const int& height)
{
    QString format; // empty: the suffix decides, so a TGA sheet works too
    QImage image;
    const QString error = TWImageExt::imageFromFile(fileName, format, image);
    if (!error.isEmpty()) {
        _setLastError(QStringLiteral("Couldn't load font bitmap file: '%1'! %2").arg(fileName, error), TW_SOURCE_LOCATION);
        return false;
    }
    return setBitmaps(image, width, height);
}

bool TWBitmapFont::setBitmaps(const QImage& image, const int& width, const int& height)
{
    // A cell side of 0 or below fits no sheet: it would divide by zero, or
    // cut tiles without end.
    if (width <= 0 || height <= 0 || image.width() % width != 0 || image.height() % height != 0) {
        _setLastError(QStringLiteral("Font image size: %1x%2 does not fit font size: %3x%4!")
                          .arg(image.width())
                          .arg(image.height())
                          .arg(width)
                          .arg(height),
                      TW_SOURCE_LOCATION);
        return false;
    }
    _fontBitmap = image;
    _fontBitmaps = TWImageExt::splitImage(image, width, height);
    // An old chartable's indices mean nothing on a new sheet.
    _chartable.clear();
    _chartables.clear();
    return true;
}

bool TWBitmapFont::loadChartable(const QString& fileName)
{
    QList<QString> lines;
    if (!TWUtils::readTxtFile(fileName, lines, QStringLiteral("UTF-8"))) {
        _setLastError(QStringLiteral("Couldn't load chartable file: '%1'!").arg(fileName), TW_SOURCE_LOCATION);
        return false;
    }
    return setChartable(lines);
}

bool TWBitmapFont::setChartable(const QList<QString>& lines)
{
    _chartable.clear();
    _chartables.clear();
    const qsizetype cells = _fontBitmaps.size();
    qsizetype number = 0;
    for (const QString& line : lines) {
        ++number;
        const QList<QString> parts = line.split(QLatin1Char('\t'), Qt::KeepEmptyParts);
        if (parts.size() != 2) {
            _setLastError(QStringLiteral("Invalid line: %1! The line must be contain 2 parts: UTF-8 character and "
                                         "Bitmap index separated by tab")
                              .arg(number),
                          TW_SOURCE_LOCATION);
            continue;
        }
        // The first UTF-16 unit; an empty first part stands for U+0000.
        const QChar character = parts.at(0).isEmpty() ? QChar() : parts.at(0).at(0);
        bool ok = false;
        const int index = parts.at(1).toInt(&ok, 10);
        if (!ok) {
            _setLastError(QStringLiteral("Invalid line: %1! The Bitmap index: '%2' must be a valid integer value")
                              .arg(QString::number(number), parts.at(1)),
                          TW_SOURCE_LOCATION);
            continue;
        }
        // Only the upper end is tested: a negative index is taken, and
        // outText() treats its character as unknown.
        if (index >= cells) {
            _setLastError(QStringLiteral("Invalid index: %1 in line: %2! The index must be 0-%3")
                              .arg(index)
                              .arg(number)
                              .arg(cells - 1),
                          TW_SOURCE_LOCATION);
            continue;
        }
        const auto present = _chartables.constFind(character);
        if (present != _chartables.cend()) {
            _writeLog(QStringLiteral("The character: '%1' in line: %2 is already exist in chartable with index: %3!")
                          .arg(QString(character), QString::number(number), QString::number(*present)),
                      QtWarningMsg, TW_SOURCE_LOCATION);
        }
        _chartables[character] = index;
    }
    _chartable = lines;
    return true;
}

void TWBitmapFont::outText(QImage& image, const int& x, const int& y, const QString& text, const int& maxColumns,
                           const int& maxRows)
{
    if (_fontBitmaps.isEmpty())
        return;
    const int cellWidth = _fontBitmaps.constFirst().width();
    const int cellHeight = _fontBitmaps.constFirst().height();
    // A painter can't begin on a null image; it would only complain.
    if (image.isNull())
        return;
    QPainter painter(&image);
    // The pen runs in 64 bits: a long text walks far past any image, and
    // cells past the int range can't show anyway.
    qint64 penX = x, penY = y;
    qint64 column = 1, row = 1;
    constexpr qint64 lowest = std::numeric_limits<int>::min(), highest = std::numeric_limits<int>::max();
    for (const QChar character : text) {
        const auto found = _chartables.constFind(character);
        if (found != _chartables.cend() && *found >= 0 && *found < _fontBitmaps.size() && penX >= lowest
            && penX <= highest && penY >= lowest && penY <= highest)
            painter.drawImage(int(penX), int(penY), _fontBitmaps.at(*found));
        penX += cellWidth;
        ++column;
        if (maxColumns > 0 && column > maxColumns) {
            penY += cellHeight;
            ++row;
            penX = x;
            column = 1;
        }
        if (maxRows > 0 && row > maxRows)
            break;
    }
}

void TWBitmapFont::setTextColor(const QColor& color)
{
    for (QImage& cell : _fontBitmaps)
        cell = TWImageExt::convertColor(cell, _textColor, color);
    _textColor = color;
}

void TWBitmapFont::setBackgroundColor(const QColor& color)
{
    for (QImage& cell : _fontBitmaps)
        cell = TWImageExt::convertColor(cell, _backgroundColor, color);
    _backgroundColor = color;
}

void TWBitmapFont::setTransparent(const int& alpha)
{
    for (QImage& cell : _fontBitmaps)
        cell = TWImageExt::convertToTransparent(cell, _backgroundColor, alpha);
    // Kept in step with the cells, so that setBackgroundColor() still finds them.
    _backgroundColor.setAlpha(alpha);
}

QImage TWBitmapFont::fontBitmap() const
{
    return _fontBitmap;
}

QList<QImage> TWBitmapFont::fontBitmaps() const
{
    return _fontBitmaps;
}

QList<QString> TWBitmapFont::chartable() const
{
    return _chartable;
}

QMap<QChar, int> TWBitmapFont::chartables() const
{
    return _chartables;
}

QColor TWBitmapFont::textColor() const
{
    return _textColor;
}

QColor TWBitmapFont::backgroundColor() const
{
    return _backgroundColor;
}

} // namespace TW
