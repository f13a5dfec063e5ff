#include "threads/LSignalObjectNamed.h"

#include <cerrno>
#include <cstring>
#include <port/bsd.h>
#include <port/net.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

#include "base/LDeadline.h"
#include "base/LLimits.h"
#include "files/LFile.h"
#include "threads/LSignalObject.h"

namespace {

constexpr int kBacklog = 5;

struct Address {
    sockaddr_un address{};
    explicit Address(const char* szPath) {
        address.sun_family = AF_UNIX;
        strlcpy(address.sun_path, szPath, sizeof address.sun_path);
    }
    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address); }
};

// A POSIX signal does not end the wait: the socket file would stay and refuse the name to the next one.
bool WaitReadable(int nDescriptor, unsigned int timeout) {
    const LDeadline deadline(timeout);
    int nReady;
    do {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(nDescriptor, &set);
        nReady = LSignalObjectRef::SelectReadable(nDescriptor, set, deadline.GetRemaining());
    } while (nReady < 0 && errno == EINTR);
    return nReady > 0;
}

} // namespace

LSignalObjectNamed::LSignalObjectNamed(const char* szName) {
    char szFolder[LPathBufferSize];
    char szWhole[LPathBufferSize];
    LFile::GetUserDataFolder(szFolder);
    LFile::_MakeFilePath(szWhole, szFolder, szName, "");
    if (strlcpy(szPath, szWhole, sizeof szPath) >= sizeof szPath)
        szPath[0] = '\0';
}

LSignalObjectNamed::~LSignalObjectNamed() {
    if (connection)
        unlink(szPath);
}

// The connection is closed right behind the byte: its end is what ends the waiter's Reset. Without blocking: a
// waiter that stands still does not hold the signaller up, nor can a POSIX signal break the connecting off.
void LSignalObjectNamed::Signal() const {
    const Address address(szPath);
    const port::UniqueFd peer(port_local_socket());
    const char byte = 1;
    if (szPath[0] != '\0' && peer && connect(peer.get(), address.Get(), sizeof address.address) == 0)
        port_send(peer.get(), &byte, 1);
}

bool LSignalObjectNamed::WaitSignal(unsigned int timeout) {
    const port::UniqueFd listener(port_local_socket());
    if (szPath[0] == '\0' || !listener || !LSignalObjectRef::FitsSelect(listener.get()) ||
        !port_local_bind(listener.get(), szPath) || listen(listener.get(), kBacklog) != 0)
        return false;
    if (!WaitReadable(listener.get(), timeout))
        return false;
    port::UniqueFd accepted(port_local_accept(listener.get()));
    if (!accepted)
        return false;
    connection = std::move(accepted);
    return true;
}

void LSignalObjectNamed::Reset() const {
    char byte;
    ssize_t nGot;
    do
        nGot = connection ? read(connection.get(), &byte, 1) : 0;
    while (nGot > 0 || (nGot < 0 && errno == EINTR));
}
