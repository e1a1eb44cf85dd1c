#include "demo.h"

#include <twzx7.h>

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QRandomGenerator>

#include <cmath>

namespace {

// Sentences made of common words, the same every run.
QByteArray generatedText(qsizetype size)
{
    static const char* const words[] = {"the", "of", "and", "to", "a", "in", "is", "it", "that", "was", "for", "on",
                                        "with", "as", "they", "be", "at", "one", "have", "this", "from", "word", "but",
                                        "what", "some", "we", "can", "other", "were", "when", "your", "how", "said",
                                        "each", "which", "their", "time", "will", "way", "about", "many", "then",
                                        "would", "like", "these", "long", "thing", "see", "two", "look", "more",
                                        "day", "could", "come", "number", "sound", "people", "water", "first"};
    const int count = int(sizeof(words) / sizeof(words[0]));
    QRandomGenerator rng(7);
    QByteArray text;
    while (text.size() < size) {
        text += words[std::min(count - 1, int(count * std::pow(rng.generateDouble(), 2)))];
        text += rng.bounded(12) ? " " : ".\n";
    }
    text.truncate(size);
    return text;
}

// A 256 x 256 picture of 24-bit pixels: a sky gradient over a flat field, with
// a few flat boxes.
QByteArray generatedPicture()
{
    const int width = 256, height = 256;
    QByteArray rgb(width * height * 3, '\0');
    char* p = rgb.data();
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x, p += 3) {
            int r = 90 + y / 2, g = 140 + y / 3, b = 230 - y / 4; // sky
            if (y > 170) {
                r = 60, g = 150, b = 50; // field
            }
            if ((x / 32 + y / 32) % 5 == 0 && y > 100) {
                r = 200, g = 40, b = 40; // boxes
            }
            p[0] = char(r), p[1] = char(g), p[2] = char(b);
        }
    }
    return rgb;
}

} // namespace

bool demoZx7(DemoContext& context)
{
    bool ok = true;
    const QDir dir(context.stepDir(QStringLiteral("zx7")));

    say(QStringLiteral("TWZX7 packs bytes into the ZX7 format: a stream of literals and back-references"));
    say(QStringLiteral("that tiny decoders expand. compress() searches the parse with the fewest bits."));
    const struct
    {
        QString name;
        QByteArray data;
    } samples[] = {
        {QStringLiteral("text.txt"), generatedText(200000)},
        {QStringLiteral("picture.rgb"), generatedPicture()},
    };
    for (const auto& sample : samples) {
        QElapsedTimer timer;
        timer.start();
        const QByteArray packed = TW::TWZX7::compress(sample.data, 0);
        const qint64 packMs = timer.elapsed();
        const QByteArray back = TW::TWZX7::decompress(packed);
        const bool same = back == sample.data;
        say(QStringLiteral("%1: %2 bytes -> %3 bytes (%4%) in %5 ms; expanded again: %6")
                .arg(sample.name)
                .arg(sample.data.size())
                .arg(packed.size())
                .arg(100.0 * double(packed.size()) / double(sample.data.size()), 0, 'f', 1)
                .arg(packMs)
                .arg(same ? QStringLiteral("identical") : QStringLiteral("DIFFERENT")));
        ok &= same && packed.size() < sample.data.size();
        ok &= writeFile(dir.filePath(sample.name), sample.data)
              && writeFile(dir.filePath(sample.name + QStringLiteral(".zx7")), packed);
    }

    say();
    say(QStringLiteral("A stream from elsewhere goes through the bounded decoder, which refuses a cut or"));
    say(QStringLiteral("hostile stream instead of running on, and stops at a size limit."));
    const QByteArray packed = TW::TWZX7::compress(samples[0].data, 0);
    bool whole = false, cut = true, capped = true;
    TW::TWZX7::decompress(packed, samples[0].data.size(), &whole);
    TW::TWZX7::decompress(packed.left(packed.size() - 1), samples[0].data.size(), &cut);
    TW::TWZX7::decompress(packed, 1000, &capped);
    say(QStringLiteral("whole stream: %1; one byte short: %2; with a limit of 1000 bytes: %3")
            .arg(whole ? QStringLiteral("accepted") : QStringLiteral("refused"),
                 cut ? QStringLiteral("accepted") : QStringLiteral("refused"),
                 capped ? QStringLiteral("accepted") : QStringLiteral("refused")));
    ok &= whole && !cut && !capped;
    say(QStringLiteral("The files are in %1; 'twtool zx7 decompress' expands the .zx7 ones.").arg(dir.absolutePath()));
    return ok;
}
