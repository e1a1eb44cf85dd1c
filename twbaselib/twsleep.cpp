#include "twsleep.h"

namespace TW {

TWSleep::TWSleep()
    : QThread()
{
}

void TWSleep::wait(unsigned long seconds)
{
    QThread::sleep(seconds);
}

void TWSleep::mwait(unsigned long msecs)
{
    QThread::msleep(msecs);
}

void TWSleep::uwait(unsigned long usecs)
{
    QThread::usleep(usecs);
}

} // namespace TW
