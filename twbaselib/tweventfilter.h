#ifndef TWEVENTFILTER_H
#define TWEVENTFILTER_H

#include "twglobal.h"
#include "twinterfaces.h"
#include "twobject.h"

#include <QtCore/qmap.h>
#include <QtCore/qmutex.h>
#include <QtCore/qobject.h>

/*!
 * Which keys are down: from a key code (a Qt::Key, as QKeyEvent::key() gives
 * it) to true while the key is pressed and false once it has been released.
 * Registered with the meta-type system under this name.
 */
typedef QMap<int, bool> TWPressedKeys;

namespace TW {

/*!
 * An event filter that keeps a table of the keys that are down and signals
 * every change.
 *
 * Install it with installEventFilter() on a window or on the application. It
 * takes over the keyboard of what it watches: every key press and release
 * stops here and never reaches the watched object, auto-repeats included.
 * Other events pass through untouched. A key gets its entry at its first
 * event and keeps it (false once released) for the life of the filter.
 *
 * Each key event emits evntKeyPress() or evntKeyRelease() and then
 * evntKeyChanged(), each with the key and a copy of the updated table. The
 * table's lock is held while they are emitted, so a slot connected directly
 * must read the table from the signal and not call back into the filter.
 */
class TWBASELIB_EXPORT TWEventFilter : public QObject, public TWObject
{
    Q_OBJECT

public:
    TWEventFilter(const QString& name, QObject* parent);
    ~TWEventFilter() override;

signals:
    void evntKeyPress(int key, TWPressedKeys pressedKeys);
    void evntKeyRelease(int key, TWPressedKeys pressedKeys);
    void evntKeyChanged(int key, TWPressedKeys pressedKeys);

public slots:
    /*! True if \a key is down; false for a released key and for one never seen. */
    bool isKeyPressed(const int& key);
    /*! A copy of the table, released keys included. */
    TWPressedKeys pressedKeys();

protected:
    /*! Records and consumes key presses and releases; leaves other events alone. */
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    TWPressedKeys keys;
    QMutex keysMutex;
};

} // namespace TW

#endif // TWEVENTFILTER_H
