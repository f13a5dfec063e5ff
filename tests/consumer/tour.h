// The public headers of every module, for the pieces of the README's tour.
#include <cstdio>
#include <fcntl.h>

#include <Foundation/Foundation.h>
#include <datetime/LDateTime.h>
#include <debug/LHangDetector.h>
#include <files/LFile.h>
#include <files/LFolderIterator.h>
#include <files/LProcessCopy.h>
#include <files/LReadFileBuffered.h>
#include <files/LSandboxBookmarkManager.h>
#include <net/LProcessSocket.h>
#include <net/LTCPListener.h>
#include <platform/LApplicationQueries.h>
#include <platform/LMachineQueries.h>
#include <platform/LProcessUtilities.h>
#include <strings/LCharsets.h>
#include <strings/LStringFormat.h>
#include <strings/LTextFile.h>
#include <threads/LProcessEventsHandler.h>
#include <threads/LSystemLockMutex.h>
#include <threads/LThreadNotifyInterface.h>
#include <zip/LProcessZip.h>
