// One operation of each module, from outside: fails to build when a public header or a symbol is missing from
// the install tree, fails to run when the pieces do not work together.
#include <cstdio>
#include <cstring>

#include <datetime/LDateTime.h>
#include <debug/LDebugThread.h>
#include <files/LFile.h>
#include <net/LIPAddress.h>
#include <platform/LCFString.h>
#include <strings/LCharsets.h>
#include <strings/LString.h>
#include <strings/LStringFormat.h>
#include <strings/LStringUtilities.h>
#include <threads/LSignalObject.h>
#include <xpc/LXPCClient.h>
#include <zip/LZipFile.h>

namespace {

struct Sink : LXPCEventNotify {
    void EvConnectionError(long, LXPCErrorType) override {}
    void EvMessageReceived(long, long, const LList<LXPCDataListable>&) override {}
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override {}
    void EvMessageSent(long) override {}
};

bool Expect(const char* what, const char* got, const char* wanted) {
    const bool same = std::strcmp(got, wanted) == 0;
    std::printf("%s %s: %s\n", same ? "ok  " : "FAIL", what, got);
    return same;
}

} // namespace

int main() {
    char path[260];
    LFile::_MakeFilePath(path, "/tmp", "a", ".txt");
    bool good = Expect("paths", path, "/tmp/a.txt");

    LStringLongTemplate<char> text;
    text.sprintf("%s_%u", "number", 7U);
    good &= Expect("formatting", LUTF8StringLongRef(text), "number_7");

    LCFString string;
    string.SetString("a\xC3\xA9");
    char back[8];
    string.GetString(back, sizeof back);
    good &= Expect("Core Foundation", back, "a\xC3\xA9");

    LDateTime date;
    date.SetDateTime(date.nTime, "2026-01-31", "");
    char day[LDateTimeTextSize];
    date.AdjustByMonths(1).GetDateInLocalFormat(day);
    good &= Expect("dates", day, "2026-02-28");

    char where[LPathBufferSize];
    LDebugGenerateXIString(where, "a", "b");
    good &= Expect("diagnostics", where, "a-MacIntel1009-b-UnknownGloIni1");

    LSignalObject signal;
    signal.Signal();
    good &= signal.IsSignaled() && LIPAddressWithPort("127.0.0.1", 80).IsResolved() &&
            LZipFileTestFileExists("", "");

    good &= utf8strlen("a\xC3\xA9") == 2 && atoh("1aF") == 0x1AF;

    Sink sink;
    LXPCClient client(&sink);
    client.SendMessage("no such connection", 1, nullptr, 0, false);
    return good ? 0 : 1;
}
