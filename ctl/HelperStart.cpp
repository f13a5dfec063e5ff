#include "HelperStart.h"

#include <cerrno>
#include <cstring>
#include <iterator>
#include <port/login_items.h>
#include <unistd.h>

#include "LoginHelperContract.h"

namespace {

using State = port_login_item_state_t;

struct ItemWords {
    const char* szWord; // for programs
    const char* szText;
};
// In the order of the states.
constexpr ItemWords kItemWords[] = {{"missing", "missing"},
                                    {"masked", "masked"},
                                    {"off", "off"},
                                    {"left", "left to the service manager"},
                                    {"on", "on"}};
static_assert(std::size(kItemWords) == PORT_LOGIN_ITEM_ON + 1);

void AddItem(Report& report, const char* szKey, const char* szLabel, const port_login_item_t& item) {
    const ItemWords& words = kItemWords[item.state];
    const std::string sFile = item.path[0] == '\0' ? "" : std::string(" (") + item.path + ")";
    report.AddChoice(szKey, szLabel, words.szWord, words.szText + sFile);
}

// Whether what the item starts can be started; it is a finding where not.
bool HasHelper(Report& report, const port_login_item_t& item) {
    if (access(item.program, X_OK) == 0)
        return true;
    report.AddFinding(std::string(item.path) + " starts " + item.program + ": " + strerror(errno),
                      "install the helper again");
    return false;
}

// What is to be done where the service manager starts the helper, or would.
std::string StepForUnit(State eUnit) {
    const std::string sUnit = LHelperServiceUnit;
    switch (eUnit) {
    case PORT_LOGIN_ITEM_MASKED:
        return "systemctl --user unmask " + sUnit;
    case PORT_LOGIN_ITEM_MISSING:
        return LOGINHELPER_CONTROL " register";
    default:
        return "systemctl --user enable " + sUnit;
    }
}

std::string StepForEntry(const port_login_item_t& entry) {
    switch (entry.state) {
    case PORT_LOGIN_ITEM_MASKED:
    case PORT_LOGIN_ITEM_OFF:
        return entry.program[0] == '\0' ? "rm " + QuoteForShell(entry.path)
                                        : std::string("take '") + entry.line + "' out of " + entry.path;
    default:
        return LOGINHELPER_CONTROL " register";
    }
}

} // namespace

HelperStart ReportHelperStart(Report& report) {
    port_login_item_t entry;
    port_login_item_t unit;
    port_session_entry(LHelperSessionEntry, &entry);
    port_user_unit(LHelperServiceUnit, &unit);
    AddItem(report, "sessionEntry", "session's entry", entry);
    AddItem(report, "serviceUnit", "unit", unit);
    const bool bUnits = port_service_manager_runs();
    const bool bLeft = entry.state == PORT_LOGIN_ITEM_LEFT;
    const bool bEntryOn = entry.state == PORT_LOGIN_ITEM_ON;
    const bool bUnitOn = bUnits && unit.state == PORT_LOGIN_ITEM_ON;
    if (!bEntryOn && !bUnitOn)
        report.AddFinding(bLeft ? "a session that the service manager runs does not start the helper"
                                : "nothing starts the helper at login",
                          bUnits ? StepForUnit(unit.state) : StepForEntry(entry));
    const bool bByEntry = (bEntryOn || bLeft) && HasHelper(report, entry);
    const bool bByUnit = bUnitOn && HasHelper(report, unit);
    if (bByEntry)
        return bEntryOn || bByUnit ? HelperStart::Always : HelperStart::OtherSessions;
    return bByUnit ? HelperStart::ManagedSessions : HelperStart::Never;
}
