#ifndef TWIMGFILTERS_H
#define TWIMGFILTERS_H

#include "twglobal.h"
#include "twimageext.h"
#include "twinterfaces.h"
#include "twobject.h"

#include <QtCore/qhash.h>
#include <QtCore/qlist.h>
#include <QtCore/qobject.h>
#include <QtCore/qstring.h>
#include <QtGui/qimage.h>

namespace TW {

/*!
 * The parameters of one step of error diffusion: the pixel at (\c x, \c y)
 * in TWImgFilters::pixel() coordinates gets each channel's error times
 * \c weight divided by \c divisor added to it.
 */
struct TWBASELIB_EXPORT TWDitherOnePixelParams
{
    TWDitherOnePixelParams(const int& x, const int& y, const int& redError, const int& greenError,
                           const int& blueError, const double& weight, const double& divisor);

    int x;
    int y;
    int redError;
    int greenError;
    int blueError;
    double weight;
    double divisor;
};

/*!
 * One picture in a working buffer with a border around it, direct access to
 * its pixels, named snapshots, and a mapping onto a palette.
 *
 * setImage() takes the picture as Format_ARGB32 and frames it with
 * TWImageExt::borderingImg(), so that a filter may reach the neighbours of an
 * edge pixel without testing for the edge. pixel() and setPixel() address the
 * picture without its border: (0, 0) is its first pixel and (-border,
 * -border) the frame's corner. The pixels are reached as TWRgb records laid
 * over the buffer, whose field \c r holds the pixel's blue and \c b its red.
 *
 * Pixel writes go straight into the buffer that setImage() made, past
 * QImage's copy-on-write. A snapshot shares that buffer, so it shows every
 * later write; only a snapshot taken before the last setImage() holds other
 * pixels. image() answers a deep copy of the picture without its border.
 *
 * Nothing here logs or sets the last error. The object belongs to one thread
 * at a time, the const operations included, since they write pixels.
 */
class TWBASELIB_EXPORT TWImgFilters : public QObject, public TWObject
{
    Q_OBJECT

public:
    TWImgFilters(const QString& name = QString(), QObject* parent = nullptr);
    ~TWImgFilters() override;

    /*! The literal "TWImgFilters". */
    static const QString className();

    /*!
     * Makes \a image, as Format_ARGB32 and framed by \a border pixels, the
     * working picture, and with \a snapshot keeps it as the snapshot
     * "original". Snapshots taken before stay.
     */
    void setImage(const QImage& image, const int& border, const bool& snapshot);
    /*! A copy of the working picture without its border; a null image before setImage(). */
    QImage image();
    /*!
     * The pixel at (\a x, \a y) of the picture without its border, or null
     * outside the framed picture (and before setImage()). The pointer stays
     * good until the next setImage() or the object's end.
     */
    TWRgb* pixel(const int& x, const int& y) const;
    /*! Writes the four bytes of \a rgb where pixel() points; nothing outside the framed picture. */
    void setPixel(const int& x, const int& y, const TWRgb& rgb) const;

public slots:
    /*! Keeps the working picture under \a name, sharing its pixels; an empty name keeps nothing. */
    void sanpshot(const QString& name);
    /*!
     * Makes the snapshot \a name what image() returns; an unknown name changes
     * nothing. Pixel access still goes to the buffer of the last setImage().
     */
    void restore(const QString& name = QStringLiteral("original"));
    /*!
     * Replaces each pixel of the picture by its nearest colour in \a palette
     * (TWImageExt::closestColor(), with a cache of its own for the run; a
     * patterned entry counts as its mean colour), row by row, left to right.
     * The error of each pixel goes to its right and lower neighbours with a
     * weight of 0, so it changes no colour there; what it does leave is an
     * alpha of 255 on the neighbours, the border's among them. With red and
     * blue exchanged in the records, the match is made on them exchanged too.
     */
    void dithering(const TWPalette& palette);

protected:
    /*!
     * Adds the errors of \a params, each times the weight and divided by the
     * divisor, to the channels of the pixel at (x, y); the sums are truncated
     * toward zero and kept within 0 to 255, and the pixel's alpha becomes
     * 255. A pixel outside the framed picture is left alone.
     */
    void _onePixelDither(const TWDitherOnePixelParams& params) const;

private:
    QImage _image;
    QHash<QString, QImage> _snapshots;
    QImage _spareImage;
    int _height;
    int _width;
    int _border;
    QList<TWRgb*> _lines;
    // Holds on to the buffer that _lines points into, so that a restore() of
    // an older snapshot can't leave the table pointing at freed memory.
    QImage _linesImage;
};

} // namespace TW

#endif // TWIMGFILTERS_H
