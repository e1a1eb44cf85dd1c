#ifndef TWTOOL_QUEUEDEMO_H
#define TWTOOL_QUEUEDEMO_H

#include <twinterfaces.h>

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>

/*! A queue item that is a fixed text. */
class TextItem : public TWQueueItemIface
{
public:
    explicit TextItem(const QString& text) : _text(text) {}
    QString serialize() override { return _text; }

private:
    QString _text;
};

/*! What the queue demo moves, and where. */
struct QueueScenario
{
    int items = 2000;
    unsigned int bound = 50;
    int producers = 2;
    int consumers = 2;
    QString dir;
    TWLoggerIface* logger = nullptr; // the queue's reports; null: a quiet log file in dir
};

/*!
 * Producer threads and consumer jobs on a thread pool move the items through a
 * queue with a small memory bound; half way the queue is restarted cleanly,
 * and afterwards the rest is drained. Reports in plain words through \a say and
 * checks, by the items it saw, that none was lost or delivered twice beyond
 * what the queue promises. \a progress (may be empty) gets the number of items
 * settled so far. Returns true when the check holds.
 */
bool runQueueScenario(const QueueScenario& scenario, const std::function<void(const QString&)>& say,
                      const std::function<void(int settled)>& progress);

/*! `twtool queue demo [--items N] [--bound B] [--producers P] [--consumers C] [--dir DIR]`. */
int runQueueDemo(const QStringList& arguments);

#endif // TWTOOL_QUEUEDEMO_H
