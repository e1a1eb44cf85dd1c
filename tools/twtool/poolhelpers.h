#ifndef TWTOOL_POOLHELPERS_H
#define TWTOOL_POOLHELPERS_H

#include <twthreadpool.h>

/*!
 * A thread announces its end once for every job it has served, and the pool
 * takes it back at the first of those announcements. Before a reused thread
 * gets new work, this lets it end completely and delivers the rest, and takes
 * another thread if one of those late announcements has freed this one.
 * Returns a reserved thread that is safe to give a worker, or null when none
 * came within \a timeoutMsec.
 */
TW::TWThread* settledThread(TW::TWThreadPool& pool, TW::TWThread* pThread, int timeoutMsec);

#endif // TWTOOL_POOLHELPERS_H
