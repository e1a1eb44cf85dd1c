#ifndef TWBITMAPFONT_H
#define TWBITMAPFONT_H

#include "twglobal.h"
#include "twinterfaces.h"
#include "twobject.h"

#include <QtCore/qlist.h>
#include <QtCore/qmap.h>
#include <QtCore/qobject.h>
#include <QtCore/qstring.h>
#include <QtGui/qcolor.h>
#include <QtGui/qimage.h>

namespace TW {

/*!
 * Text drawn from a sheet of equally sized character cells.
 *
 * A font is a sheet, cut into cells row by row from the top left (cell 0,
 * 1, 2 ... along the first row), and a chartable: UTF-8 lines of a
 * character, a tab and a cell index ("A\t33"). Set the sheet first
 * (loadBitmaps() or setBitmaps()), then the chartable, which is checked
 * against the number of cells and is wiped by a new sheet.
 *
 * The cells can be recoloured and their background made transparent; the
 * sheet as it was set stays as it is. outText() draws the cells of a text
 * into any QImage. Failures answer false with a last error; bad chartable
 * lines are skipped one by one, each with its message.
 *
 * A copy takes the source's sheet, cells, chartable and colours, and its
 * parent; its own name comes from the source's objectName(). Assignment
 * takes the same and the parent and object name, and keeps the target's
 * name, logger and last error.
 */
class TWBASELIB_EXPORT TWBitmapFont : public QObject, public TWObject
{
    Q_OBJECT

public:
    TWBitmapFont(const QString& name = QString(), QObject* parent = nullptr);
    TWBitmapFont(const TWBitmapFont& other);
    TWBitmapFont& operator=(const TWBitmapFont& other);
    ~TWBitmapFont() override;

    /*! The literal "TWBitmapFont". */
    static const QString className();

    /*!
     * Reads the sheet from \a fileName (any format that TWImageExt reads, TGA
     * included, chosen by the suffix) and cuts it as setBitmaps() does. False
     * with "Couldn't load font bitmap file: ..." when it can't be read.
     */
    bool loadBitmaps(const QString& fileName, const int& width, const int& height);
    /*!
     * Makes \a image the sheet, cut into cells of \a width by \a height, and
     * empties the chartable; the colours stay. False with "Font image size:
     * ... does not fit font size: ..." when the sheet's sides are no multiples
     * of the cell's (or a side of the cell is 0 or below); the old font stays.
     */
    bool setBitmaps(const QImage& image, const int& width, const int& height);
    /*!
     * Reads the chartable's lines from the UTF-8 file \a fileName, blank lines
     * left out, and takes them as setChartable() does. False with "Couldn't
     * load chartable file: ..." when it can't be read; the old chartable stays.
     */
    bool loadChartable(const QString& fileName);
    /*!
     * Takes \a lines as the chartable and answers true. A line without
     * exactly one tab, with no integer after it, or with an index past the
     * last cell is skipped with its message as the last error; a character
     * given again wins with its new index, with a warning in the log. Only the
     * first UTF-16 unit of the character part counts. All lines are kept, as
     * chartable() shows. A negative index is taken, and outText() treats that
     * character as unknown. Ask isThereError() to learn of bad lines.
     */
    bool setChartable(const QList<QString>& lines);
    /*!
     * Draws \a text into \a image, the first cell's top left corner at
     * (\a x, \a y), composing over what is there. A character that the
     * chartable lacks leaves an empty cell. After \a maxColumns cells (0 or
     * below: no limit) the next cell goes below the first; after \a maxRows
     * rows (0 or below: no limit) the text ends. There is no other line break:
     * a line feed is a character like any other. Nothing happens without cells.
     */
    void outText(QImage& image, const int& x, const int& y, const QString& text, const int& maxColumns,
                 const int& maxRows);
    /*! Repaints every cell pixel of exactly the text colour (alpha included) in \a color. */
    void setTextColor(const QColor& color);
    /*! Repaints every cell pixel of exactly the background colour (alpha included) in \a color. */
    void setBackgroundColor(const QColor& color);
    /*!
     * Gives every cell pixel of the background colour, whatever its alpha,
     * the low byte of \a alpha as its alpha, and the background colour that
     * alpha (Qt keeps it within 0 to 255 there).
     */
    void setTransparent(const int& alpha);

    /*! The sheet as it was set. */
    QImage fontBitmap() const;
    /*! The cells, recoloured, in Format_ARGB32 once a colour was set. */
    QList<QImage> fontBitmaps() const;
    /*! The chartable's lines as they were given, bad ones too. */
    QList<QString> chartable() const;
    /*! Each character's cell index. */
    QMap<QChar, int> chartables() const;
    /*! The colour that stands for text in the cells: opaque black at first. */
    QColor textColor() const;
    /*! The colour that stands for background in the cells: opaque white at first. */
    QColor backgroundColor() const;

private:
    QImage _fontBitmap;
    QList<QImage> _fontBitmaps;
    QList<QString> _chartable;
    QMap<QChar, int> _chartables;
    QColor _backgroundColor;
    QColor _textColor;
};

} // namespace TW

#endif // TWBITMAPFONT_H
