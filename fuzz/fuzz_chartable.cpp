// Feeds arbitrary text to TWBitmapFont::setChartable, one line per line feed
// (blank lines and carriage returns kept), over a sheet whose number of cells
// the first byte chooses (0 to 63), and compares the map, the kept lines, the
// last error and the warnings with a parser written step by step. Then prints
// the input with outText, which must stay within the cells whatever the
// indices, negative ones included.
#include <twbitmapfont.h>

#include <QtGui/QImage>

#include <cstdint>
#include <cstdlib>

namespace {

// Keeps the font's reports in memory, so that nothing reaches a log file.
class Recorder : public TWLoggerIface
{
public:
    bool writeLog(const QString& msg, QtMsgType type, const QString&, int, const QString&) override
    {
        if (type == QtWarningMsg)
            warnings << msg;
        return true;
    }
    bool writeLog(QtMsgType type, const QMessageLogContext&, const QString& msg) override
    {
        return writeLog(msg, type, QString(), 0, QString());
    }
    QStringList warnings;
};

struct Expected
{
    QMap<QChar, int> map;
    QString error;
    QStringList warnings;
};

Expected plainParser(const QList<QString>& lines, int cells)
{
    Expected out;
    int n = 0;
    for (const QString& line : lines) {
        ++n;
        QList<QString> parts;
        QString part;
        for (const QChar c : line) {
            if (c == QLatin1Char('\t')) {
                parts << part;
                part.clear();
            } else {
                part += c;
            }
        }
        parts << part;
        if (parts.size() != 2) {
            out.error = QStringLiteral("Invalid line: %1! The line must be contain 2 parts: UTF-8 character and Bitmap index separated by tab").arg(n);
            continue;
        }
        const QChar character = parts[0].isEmpty() ? QChar(0) : parts[0][0];
        bool ok = false;
        const int index = parts[1].toInt(&ok, 10);
        if (!ok) {
            out.error = QStringLiteral("Invalid line: %1! The Bitmap index: '%2' must be a valid integer value").arg(QString::number(n), parts[1]);
            continue;
        }
        if (index >= cells) {
            out.error = QStringLiteral("Invalid index: %1 in line: %2! The index must be 0-%3").arg(index).arg(n).arg(cells - 1);
            continue;
        }
        if (out.map.contains(character))
            out.warnings << QStringLiteral("The character: '%1' in line: %2 is already exist in chartable with index: %3!")
                                .arg(QString(character), QString::number(n), QString::number(out.map.value(character)));
        out.map[character] = index;
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const int cells = data[0] % 64;
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data) + 1, qsizetype(size - 1));
    const QList<QString> lines = text.split(QLatin1Char('\n'));

    static const QImage sheet = [] {
        QImage image(64 * 4, 4, QImage::Format_ARGB32);
        image.fill(Qt::white);
        return image;
    }();
    Recorder recorder;
    TW::TWBitmapFont font;
    font.setLogger(&recorder);
    if (!font.setBitmaps(sheet.copy(0, 0, cells * 4, 4), 4, 4) || font.fontBitmaps().size() != cells)
        std::abort();
    if (!font.setChartable(lines) || font.chartable() != lines)
        std::abort();
    const Expected expected = plainParser(lines, cells);
    if (font.chartables() != expected.map || font.lastErrorStr() != expected.error || recorder.warnings != expected.warnings)
        std::abort();

    QImage target(40, 12, QImage::Format_ARGB32);
    target.fill(Qt::black);
    font.setTransparent(int(size % 256));
    font.outText(target, int(size % 7) - 3, 0, text.left(200), int(size % 11), int(size % 3));
    return 0;
}
