#ifndef TWTOOL_DEMO_H
#define TWTOOL_DEMO_H

#include <QtCore/QByteArray>
#include <QtCore/QDir>
#include <QtCore/QString>

// The tour that `twtool demo` (and `make demo`) runs. Each step shows one part
// of the library in plain words and leaves its files under its own folder.

struct DemoContext
{
    QDir outDir;

    /*! A fresh folder for a step's files: <out>/<name>, emptied first. */
    QString stepDir(const QString& name) const;
};

/*! Prints the text with a step's indentation. */
void say(const QString& text = QString());

/*! Writes a step's file through the tool's checked save; says why when it fails. */
bool writeFile(const QString& path, const QByteArray& data);

// Steps, in the order of the tour. Each returns true when it went as expected.
bool demoObjectsAndLogger(DemoContext& context);
bool demoZx7(DemoContext& context);
bool demoThreadPool(DemoContext& context);
bool demoConfiguration(DemoContext& context);
bool demoQueue(DemoContext& context);
bool demoImage(DemoContext& context);
bool demoPalette(DemoContext& context);
bool demoVoices(DemoContext& context);

#endif // TWTOOL_DEMO_H
