#include "poolhelpers.h"

#include <QtCore/QCoreApplication>

TW::TWThread* settledThread(TW::TWThreadPool& pool, TW::TWThread* pThread, int timeoutMsec)
{
    while (pThread) {
        pThread->wait();
        QCoreApplication::sendPostedEvents(pThread, QEvent::MetaCall);
        if (pThread->isBusy())
            return pThread;
        pThread = pool.waitingForReserveThread(timeoutMsec);
    }
    return nullptr;
}
