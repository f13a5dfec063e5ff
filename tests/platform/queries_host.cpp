// The application of the query tests: says what it knows of itself, and stays until it is ended or 30 seconds
// have passed.
#include <cstdio>
#include <unistd.h>

#include "base/LLimits.h"
#include "platform/LApplicationQueries.h"

int main() {
    char szResources[LPathBufferSize];
    char szOwnResources[LPathBufferSize];
    char szCut[9];
    LGetInstalledApplicationResourcesFolder(szResources, sizeof szResources);
    LGetInstalledApplicationResourcesFolder(szCut, sizeof szCut);
    LGetInstalledApplicationLXAResourcesFolder(szOwnResources);
    std::printf("%d %s %s %s\n", LIsApplicationBundled(), szResources, szCut, szOwnResources);
    std::fflush(stdout);
    alarm(30);
    pause();
}
