#include "commandline.h"
#include "commands.h"
#include "wavfile.h"

#include <twutils.h>
#include <twvoiceutils.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QFileInfo>

#include <cmath>

using TW::TWVoice;
using TW::TWVoiceUtils;

namespace {

const QString Command = QStringLiteral("voice");

// The library's file helpers log a failed read as well as keeping its reason.
// The command prints that reason itself, on one line with its own message, so
// their log lines go nowhere (and never into a log file in the user's folder).
class SilentLogger : public TWLoggerIface
{
public:
    bool writeLog(const QString&, QtMsgType, const QString&, int, const QString&) override { return true; }
    bool writeLog(QtMsgType, const QMessageLogContext&, const QString&) override { return true; }
};

// Reads a file of tones: one "FREQUENCY DURATION VELOCITY" a line, FREQUENCY
// in Hz or a MIDI note "nNN", with "#" comments and blank lines.
bool readTones(const QString& path, QList<TWVoice>& voices, QString& error)
{
    QString text;
    if (!TW::TWUtils::readTxtFile(path, text, QStringLiteral("UTF-8"))) {
        error = TW::TWUtils::lastError();
        return false;
    }
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QStringList fields =
            lines.at(i).section(QLatin1Char('#'), 0, 0).simplified().split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (fields.isEmpty())
            continue;
        const auto bad = [&](const QString& why) {
            error = QStringLiteral("%1:%2: %3").arg(path, QString::number(i + 1), why);
            return false;
        };
        if (fields.size() != 3)
            return bad(QStringLiteral("expected a frequency, a duration and a velocity, as in '440 0.5 100'."));

        TWVoice voice;
        bool ok = false;
        if (fields.at(0).startsWith(QLatin1Char('n'), Qt::CaseInsensitive)) {
            const double note = fields.at(0).mid(1).toDouble(&ok);
            if (!ok || !(note >= 0.0 && note <= 127.0))
                return bad(QStringLiteral("'%1' is no MIDI note from n0 to n127.").arg(fields.at(0)));
            voice.frequency = TWVoiceUtils::midiNoteToFrequency(note);
        } else {
            voice.frequency = fields.at(0).toDouble(&ok);
            if (!ok || !(voice.frequency >= 0.0 && std::isfinite(voice.frequency)))
                return bad(QStringLiteral("'%1' is no frequency in Hz (0 is silence).").arg(fields.at(0)));
        }
        voice.duration = fields.at(1).toDouble(&ok);
        if (!ok || !(voice.duration >= 0.0 && std::isfinite(voice.duration)))
            return bad(QStringLiteral("'%1' is no duration in seconds.").arg(fields.at(1)));
        voice.velocity = fields.at(2).toInt(&ok);
        if (!ok || voice.velocity < 0 || voice.velocity > 127)
            return bad(QStringLiteral("'%1' is no velocity from 0 to 127.").arg(fields.at(2)));
        voices.append(voice);
    }
    return true;
}

bool doubleOption(const QCommandLineParser& parser, const QString& name, double& value)
{
    bool ok = false;
    value = parser.value(name).toDouble(&ok);
    if (!ok || !std::isfinite(value) || value < 0.0) {
        Tool::usageError(Command, QStringLiteral("--%1 takes a duration in seconds, not '%2'.")
                                      .arg(name, parser.value(name)));
        return false;
    }
    return true;
}

// "\n", "\t" and "\\" in a template given on the command line.
QString unescape(const QString& text)
{
    QString out;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar next = i + 1 < text.size() ? text.at(i + 1) : QChar();
        if (text.at(i) == QLatin1Char('\\') && (next == QLatin1Char('n') || next == QLatin1Char('t') || next == QLatin1Char('\\'))) {
            out += next == QLatin1Char('n') ? QLatin1Char('\n') : next == QLatin1Char('t') ? QLatin1Char('\t') : next;
            ++i;
        } else {
            out += text.at(i);
        }
    }
    return out;
}

} // namespace

int runVoiceCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Renders a list of tones as a WAV file, or prints it through a template.\n\n"
        "  render TONES OUT.wav   writes the tones as sine waves into a mono WAV file\n"
        "  text TONES FORMAT      prints the tones through FORMAT\n\n"
        "TONES is a text file of one tone a line: a frequency in Hz (0 is silence) or a\n"
        "MIDI note such as n69, a duration in seconds and a velocity from 0 to 127,\n"
        "separated by blanks, as in '440 0.5 100'. '#' starts a comment.\n"
        "FORMAT replaces {f}, {d} and {v} by each tone's frequency, duration and\n"
        "velocity; the part up to the first '{' after a {c} stands once, with {c} the\n"
        "number of tones. \\n and \\t in FORMAT are a line feed and a tab.\n"
        "--table maps the frequencies through a frequency table file (lines such as\n"
        "'440 - 442.5'); --min and --max then merge equal neighbours and cut or drop\n"
        "tones so that every duration lies between the two."));
    const QCommandLineOption force({QStringLiteral("f"), QStringLiteral("force")},
                                   QStringLiteral("render: overwrite OUT.wav if it exists."));
    parser.addOption(force);
    parser.addOptions({
        {QStringLiteral("rate"), QStringLiteral("render: samples per second (default: 44100)."), QStringLiteral("R")},
        {QStringLiteral("bits"), QStringLiteral("render: 8, 16 (default), 32 or float."), QStringLiteral("B")},
        {QStringLiteral("velocity"), QStringLiteral("render: scale each tone by its velocity / 127.")},
        {QStringLiteral("round"), QStringLiteral("text: write frequencies and durations as whole numbers.")},
        {QStringLiteral("table"), QStringLiteral("Map the frequencies through this table file."), QStringLiteral("FILE")},
        {QStringLiteral("min"), QStringLiteral("Shortest duration, in seconds (with --max)."), QStringLiteral("D")},
        {QStringLiteral("max"), QStringLiteral("Longest duration, in seconds (with --min)."), QStringLiteral("D")},
    });
    parser.addPositionalArgument(QStringLiteral("action"), QStringLiteral("render or text."));
    parser.addPositionalArgument(QStringLiteral("TONES"), QStringLiteral("The file of tones."));
    parser.addPositionalArgument(QStringLiteral("OUT|FORMAT"), QStringLiteral("The WAV file, or the template."));
    if (const auto done = Tool::parse(parser, arguments))
        return *done;

    const QStringList args = parser.positionalArguments();
    const QString action = args.value(0);
    const bool render = action == QLatin1String("render");
    if (!render && action != QLatin1String("text"))
        return Tool::usageError(Command, action.isEmpty() ? QStringLiteral("say render or text.")
                                                          : QStringLiteral("unknown action '%1': say render or text.").arg(action));
    if (args.size() != 3)
        return Tool::usageError(Command, render ? QStringLiteral("render takes TONES and OUT.wav.")
                                                : QStringLiteral("text takes TONES and FORMAT."));
    for (const char* name : {"f", "rate", "bits", "velocity", "round"}) {
        const bool renderOnly = qstrcmp(name, "round") != 0;
        if (parser.isSet(QLatin1String(name)) && renderOnly != render)
            return Tool::usageError(Command, QStringLiteral("%1%2 applies to %3 only.")
                                                 .arg(qstrlen(name) > 1 ? QStringLiteral("--") : QStringLiteral("-"),
                                                      QLatin1String(name), renderOnly ? QStringLiteral("render")
                                                                                      : QStringLiteral("text")));
    }

    qint64 rate = 44100;
    if (!Tool::intOption(parser, Command, QStringLiteral("rate"), 1, 1000000, rate))
        return Tool::UsageError;
    int sampleSize = 16;
    if (parser.isSet(QStringLiteral("bits"))) {
        const QString bits = parser.value(QStringLiteral("bits"));
        sampleSize = bits == QLatin1String("float") ? 64 : bits.toInt();
        if (sampleSize != 8 && sampleSize != 16 && sampleSize != 32 && sampleSize != 64)
            return Tool::usageError(Command, QStringLiteral("--bits takes 8, 16, 32 or float, not '%1'.").arg(bits));
    }
    const bool resolution = parser.isSet(QStringLiteral("min")) || parser.isSet(QStringLiteral("max"));
    double minDuration = 0.0, maxDuration = 0.0;
    if (resolution) {
        if (!parser.isSet(QStringLiteral("min")) || !parser.isSet(QStringLiteral("max")))
            return Tool::usageError(Command, QStringLiteral("--min and --max go together."));
        if (!doubleOption(parser, QStringLiteral("min"), minDuration)
            || !doubleOption(parser, QStringLiteral("max"), maxDuration))
            return Tool::UsageError;
        if (maxDuration <= 0.0 || minDuration > maxDuration)
            return Tool::usageError(Command, QStringLiteral("--max must be above 0 and not below --min."));
    }

    const QString out = args.at(2);
    if (render && QFileInfo::exists(out) && !parser.isSet(force))
        return Tool::failure(Command, QStringLiteral("'%1' exists; use -f to overwrite it.").arg(out));

    SilentLogger silent;
    TWLoggerIface* previousLogger = TW::TWUtils::logger();
    TW::TWUtils::setLogger(&silent);
    struct Restore
    {
        TWLoggerIface* logger;
        ~Restore() { TW::TWUtils::setLogger(logger); }
    } restore{previousLogger};

    QList<TWVoice> voices;
    QString error;
    if (!readTones(args.at(1), voices, error))
        return Tool::failure(Command, error);
    if (parser.isSet(QStringLiteral("table"))) {
        std::map<double, double> table;
        if (!TWVoiceUtils::loadFrequencyTable(parser.value(QStringLiteral("table")), table, error)) {
            if (error.startsWith(QLatin1String("Couldn't load")))
                error += QLatin1Char(' ') + TW::TWUtils::lastError();
            return Tool::failure(Command, error);
        }
        voices = TWVoiceUtils::convertFrequencies(voices, table);
    }
    if (resolution)
        voices = TWVoiceUtils::setDurationResolution(voices, minDuration, maxDuration);

    if (!render) {
        QString text = TWVoiceUtils::voicesToText(voices, unescape(out), parser.isSet(QStringLiteral("round")));
        if (text.endsWith(QLatin1Char('\n')))
            text.chop(1);
        Tool::out(text);
        return Tool::Success;
    }

    // The library gives a tone of 2^31 samples or more none at all; a WAV file
    // holds 4 GiB. Both are told here rather than found missing later.
    const int bytes = sampleSize == 64 || sampleSize == 32 ? 4 : sampleSize / 8;
    double expected = 0.0;
    for (const TWVoice& voice : std::as_const(voices)) {
        const double samples = std::trunc(voice.duration * double(rate));
        if (samples >= 2147483648.0)
            expected = 1e300;
        expected += samples * bytes;
    }
    const double seconds = TWVoiceUtils::secondsOfVoices(voices);
    if (expected > double(Wav::MaxDataSize))
        return Tool::failure(Command, QStringLiteral("%1 s of sound at %2 Hz is more than a WAV file holds (4 GiB).")
                                          .arg(seconds, 0, 'f', 3).arg(rate));
    if (Tool::stderrIsTerminal() && expected > 64e6)
        Tool::err(QStringLiteral("Rendering %1 s of sound...").arg(seconds, 0, 'f', 1));
    // Players read float samples from -1 to 1, while the library's default
    // float scale spans the whole float range: the tool scales by 1 instead.
    const float floatScale = TWVoiceUtils::TWSSFMUL;
    TWVoiceUtils::TWSSFMUL = 1.0f;
    const QByteArray samples = TWVoiceUtils::voicesToAudioSample(voices, int(rate), sampleSize,
                                                                 parser.isSet(QStringLiteral("velocity")), nullptr);
    TWVoiceUtils::TWSSFMUL = floatScale;
    if (double(samples.size()) != expected)
        return Tool::failure(Command, QStringLiteral("not enough memory for %1 bytes of samples.").arg(expected, 0, 'f', 0));

    const QByteArray wav = Wav::file(samples, int(rate), sampleSize);
    if (!Tool::saveFile(out, wav, error))
        return Tool::failure(Command, error);
    Tool::out(QStringLiteral("%1: %2 tone(s), %3 s, %4 Hz, %5, %6 bytes")
                  .arg(out, QString::number(voices.size()), QString::number(seconds, 'f', 3), QString::number(rate),
                       sampleSize == 64 ? QStringLiteral("32-bit float") : QStringLiteral("%1-bit").arg(sampleSize),
                       QString::number(wav.size())));
    return Tool::Success;
}
