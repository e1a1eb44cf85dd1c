#include "commandline.h"
#include "commands.h"

#include <twconfig.h>

#include <QtCore/QCommandLineParser>

namespace {

const char* const typeNames[] = {"str", "strlist", "bool", "int", "uint", "longlong", "ulonglong", "folder",
                                 "range:int", "range:uint", "range:longlong", "range:ulonglong", "range:bool",
                                 "range:str"};

// The library reports through Qt's messages; show them as the tool's own
// errors and remember whether one was critical (the read failed).
int criticalCount = 0;

void forwardMessage(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (type == QtCriticalMsg || type == QtFatalMsg)
        ++criticalCount;
    Tool::err(QStringLiteral("twtool config: %1").arg(text));
}

QMetaType::Type rangeType(const QString& type)
{
    if (type == QLatin1String("range:int"))
        return QMetaType::Int;
    if (type == QLatin1String("range:uint"))
        return QMetaType::UInt;
    if (type == QLatin1String("range:longlong"))
        return QMetaType::LongLong;
    if (type == QLatin1String("range:ulonglong"))
        return QMetaType::ULongLong;
    if (type == QLatin1String("range:bool"))
        return QMetaType::Bool;
    return QMetaType::QString;
}

bool parseBool(const QString& text, bool& value)
{
    const QString word = text.trimmed().toLower();
    if (word == QLatin1String("true") || word == QLatin1String("yes") || word == QLatin1String("on")
        || word == QLatin1String("1")) {
        value = true;
        return true;
    }
    if (word == QLatin1String("false") || word == QLatin1String("no") || word == QLatin1String("off")
        || word == QLatin1String("0")) {
        value = false;
        return true;
    }
    return false;
}

// Reads \a key as \a type and prints it; false when the read reported a failure.
// \a defaultText has been checked to fit the type.
bool printValue(TW::TWConfig& config, const QString& key, const QString& type, const QString& defaultText)
{
    bool ok = true;
    if (type == QLatin1String("str")) {
        Tool::out(config.getStrValue(key, defaultText));
    } else if (type == QLatin1String("strlist")) {
        QStringList defaults;
        for (const QString& item : defaultText.split(QLatin1Char(','), Qt::SkipEmptyParts))
            defaults << item.trimmed();
        for (const QString& item : config.getStrListValue(key, defaults))
            Tool::out(item);
    } else if (type == QLatin1String("bool")) {
        bool value = false;
        parseBool(defaultText, value);
        Tool::out(config.getBoolValue(key, value) ? QStringLiteral("true") : QStringLiteral("false"));
    } else if (type == QLatin1String("int")) {
        Tool::out(QString::number(config.getIntValue(key, defaultText.toInt())));
    } else if (type == QLatin1String("uint")) {
        Tool::out(QString::number(config.getUIntValue(key, defaultText.toUInt())));
    } else if (type == QLatin1String("longlong")) {
        Tool::out(QString::number(config.getLongLongValue(key, defaultText.toLongLong())));
    } else if (type == QLatin1String("ulonglong")) {
        Tool::out(QString::number(config.getULongLongValue(key, defaultText.toULongLong())));
    } else if (type == QLatin1String("folder")) {
        Tool::out(config.getFolder(key, defaultText));
    } else {
        bool isRange = false;
        const int before = criticalCount;
        const QList<QVariant> elements = config.getValueRange(key, isRange, rangeType(type), defaultText);
        ok = criticalCount == before;
        Tool::out(isRange ? QStringLiteral("range: yes") : QStringLiteral("range: no"));
        for (const QVariant& element : elements)
            Tool::out(element.toString());
    }
    return ok;
}

// Whether \a text can be the default of \a type.
bool defaultFits(const QString& type, const QString& text)
{
    bool ok = true;
    bool flag = false;
    if (type == QLatin1String("bool"))
        ok = parseBool(text, flag);
    else if (type == QLatin1String("int"))
        text.toInt(&ok);
    else if (type == QLatin1String("uint"))
        text.toUInt(&ok);
    else if (type == QLatin1String("longlong"))
        text.toLongLong(&ok);
    else if (type == QLatin1String("ulonglong"))
        text.toULongLong(&ok);
    return ok;
}

} // namespace

int runConfigCommand(const QStringList& arguments)
{
    const QString command = QStringLiteral("config");
    QStringList types;
    for (const char* name : typeNames)
        types << QLatin1String(name);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Reads KEY from the INI file FILE as the library reads it and prints the value.\n"
        "An absent key gives the default. A value that does not fit a number type gives\n"
        "the default with a warning on standard error. A value range prints \"range: yes\"\n"
        "or \"range: no\" and then one element per line; a range that cannot be read\n"
        "prints no elements and exits with 1.\n"
        "Range forms: 13, or 0 - 100 (minimum and maximum), or 2, 3, 4, 5."));
    parser.addOptions({
        {QStringLiteral("type"), QStringLiteral("How to read the value: %1 (default: str).").arg(types.join(QStringLiteral(", "))),
         QStringLiteral("TYPE"), QStringLiteral("str")},
        {QStringLiteral("default"),
         QStringLiteral("Value to use when the key is absent: text, for a list items separated by "
                        "commas, for a number type a number, for bool true or false (default: empty, 0 "
                        "or false)."),
         QStringLiteral("TEXT")},
    });
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The INI file."));
    parser.addPositionalArgument(QStringLiteral("KEY"), QStringLiteral("The key, such as MainLog.LogFilePath."));
    if (const auto done = Tool::parse(parser, arguments))
        return *done;

    const QStringList positional = parser.positionalArguments();
    if (positional.size() != 2)
        return Tool::usageError(command, QStringLiteral("takes a FILE and a KEY."));
    const QString type = parser.value(QStringLiteral("type"));
    if (!types.contains(type))
        return Tool::usageError(command, QStringLiteral("unknown type '%1'.").arg(type));
    const bool numeric = type == QLatin1String("int") || type == QLatin1String("uint")
        || type == QLatin1String("longlong") || type == QLatin1String("ulonglong");
    QString defaultText = parser.value(QStringLiteral("default"));
    if (!parser.isSet(QStringLiteral("default")) && (numeric || type == QLatin1String("bool")))
        defaultText = numeric ? QStringLiteral("0") : QStringLiteral("false");
    if (!defaultFits(type, defaultText))
        return Tool::usageError(command, QStringLiteral("--default '%1' does not fit the type %2.").arg(defaultText, type));

    qInstallMessageHandler(forwardMessage);
    TW::TWConfig config;
    if (!config.load(positional.at(0)))
        return Tool::Failure;
    return printValue(config, positional.at(1), type, defaultText) ? Tool::Success : Tool::Failure;
}
