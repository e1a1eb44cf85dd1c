#include "tweventfilter.h"

#include <QtCore/qmetatype.h>
#include <QtGui/qevent.h>

namespace TW {

TWEventFilter::TWEventFilter(const QString& name, QObject* parent)
    : QObject(parent)
    , TWObject(name)
{
    // Under its own name, so that the signals can also be queued by their
    // string signatures. Registering again for each filter is harmless.
    qRegisterMetaType<TWPressedKeys>("TWPressedKeys");
}

TWEventFilter::~TWEventFilter() = default;

bool TWEventFilter::isKeyPressed(const int& key)
{
    QMutexLocker locker(&keysMutex);
    return keys.value(key, false);
}

TWPressedKeys TWEventFilter::pressedKeys()
{
    QMutexLocker locker(&keysMutex);
    return keys;
}

bool TWEventFilter::eventFilter(QObject* watched, QEvent* event)
{
    const QEvent::Type type = event->type();
    if (type != QEvent::KeyPress && type != QEvent::KeyRelease)
        return QObject::eventFilter(watched, event);

    // Held across the signals, so that each one carries the table exactly as
    // this event left it.
    QMutexLocker locker(&keysMutex);
    const int key = static_cast<QKeyEvent*>(event)->key();
    if (type == QEvent::KeyPress) {
        keys[key] = true;
        emit evntKeyPress(key, keys);
    } else {
        keys[key] = false;
        emit evntKeyRelease(key, keys);
    }
    emit evntKeyChanged(key, keys);
    return true;
}

} // namespace TW
