// The contract between the login helper and the main application: service, identities, message keys and
// settings, in one place for both sides.
//
// Thread-safety: constants.
#pragma once

// The helper: its named service, which is also the identifier of its bundle and of its settings.
constexpr const char* LHelperServiceName = "Q4KX2M9T7W.com.brelvanic.loginhelper.zubeqfree214";
constexpr const char* LHelperIdentifier = LHelperServiceName;

// How it is started at login: the session's entry, or the unit of the user's service manager.
constexpr const char* LHelperSessionEntry = "loginhelper.desktop";
constexpr const char* LHelperServiceUnit = "loginhelper.service";

// The main application: how it is recognised, and the major and minor version that the helper launches.
constexpr const char* LMainAppDisplayName = "Zubeq Free";
constexpr const char* LMainAppIdentifier = "com.brelvanic.zubeqfree";
constexpr const char* LMainAppVersion = "2.14";
constexpr const char* LMainAppDefaultPath = "/Applications/Zubeq Free.app";

// Message keys, in the order in which the helper declares them: received items come in this order.
constexpr const char* LKeyTestConnection = "XPC_TEST_CONNECTION";       // bool, presence only
constexpr const char* LKeyNewConnection = "XPC_NEW_CONNECTION";         // bool, presence only
constexpr const char* LKeyMainAppBundleId = "MAIN_APP_BUNDLEID";        // string
constexpr const char* LKeyMainAppBundlePath = "MAIN_APP_BUNDLE_PATH";   // string, a full path
constexpr const char* LKeyLaunchAtLogin = "LAUNCH_AT_LOGIN";            // bool, the new setting
constexpr const char* LKeyQueryLaunchAtLogin = "QUERY_LAUNCH_AT_LOGIN"; // bool, presence only
constexpr const char* LKeyShutdownHelper = "XPC_SHUTDOWN_HELPER";       // bool, presence only

// Reply keys: every reply holds exactly one, a bool.
constexpr const char* LReplyTestConnection = "XPC_TEST_CONNECTION_REPLY";
constexpr const char* LReplyNewConnection = "XPC_NEW_CONNECTION_REPLY";
constexpr const char* LReplyLaunchAtLogin = "LAUNCH_AT_LOGIN_REPLY";
constexpr const char* LReplyQueryLaunchAtLogin = "QUERY_LAUNCH_AT_LOGIN_REPLY";

// The helper's settings.
constexpr const char* LSettingLaunchAtLogin = "LOGINHELPER_LAUNCH_AT_LOGIN"; // boolean
constexpr const char* LSettingMainAppPath = "LOGINHELPER_MAIN_APP_PATH";     // string
