// The helper's answers: one conversation over the real socket, message by message.
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "app/Login.h"
#include "support/RecordingClient.h"

namespace {

LXPCData Flag(const char* key, bool value = true) {
    return Item(key, LXPCDataTypeBool, value ? 1 : 0);
}

LXPCData Path(const char* path) {
    return TextItem(LKeyMainAppBundlePath, path);
}

using Lines = std::vector<std::string>;

class Protocol : public testing::Test {
protected:
    Protocol() : application({login.MakeBundle(VERSION) + "/Contents/MacOS/" APP}) {
        for (const char* key :
             {LReplyTestConnection, LReplyNewConnection, LReplyLaunchAtLogin, LReplyQueryLaunchAtLogin})
            client.AddKey(key, LXPCDataTypeBool);
    }

    void SetUp() override {
        ASSERT_EQ(application.ReadLine(), APP ": started by the user");
        Start();
    }
    void Start() {
        helper = Login::StartHelper();
        ASSERT_EQ(helper->ReadLine(), std::string(HELPER ": serving ") + LHelperServiceName);
        client.Connect(LHelperServiceName, 1, true);
    }

    void Send(const std::vector<LXPCData>& items, bool wantReply = true, unsigned long connection = 1) {
        client.SendMessage(LHelperServiceName, connection, items.data(), items.size(), wantReply);
    }
    // Sends, and gives the replies that follow: so many, or fewer when they do not come.
    Lines Ask(const std::vector<LXPCData>& items, std::size_t replies = 1, int milliseconds = 10000) {
        const std::size_t before = sink.Count("reply ");
        Send(items);
        WaitFor([&] { return sink.Count("reply ") >= before + replies; }, milliseconds);
        const Lines all = sink.Lines("reply ");
        return {all.begin() + static_cast<std::ptrdiff_t>(before), all.end()};
    }

    const LXPCData test = Flag(LKeyTestConnection);
    const LXPCData query = Flag(LKeyQueryLaunchAtLogin);

    Login login;
    ChildProcess application;
    std::unique_ptr<ChildProcess> helper;
    RecordingSink sink;
    LXPCClient client{&sink};
};

TEST_F(Protocol, MessageByMessage) {
    static const std::string longPath(5000, 'x');
    const LXPCData connect = Flag(LKeyNewConnection);
    const LXPCData identifier = TextItem(LKeyMainAppBundleId, LMainAppIdentifier);
    const LXPCData path = Path(LOGINHELPER_APP_PATH);
    const LXPCData on = Flag(LKeyLaunchAtLogin);
    const LXPCData off = Flag(LKeyLaunchAtLogin, false);
    const std::string none = "off (none)";
    const std::string some = "on " LOGINHELPER_APP_PATH;
    const std::string other = "on /Äpfel & <Birnen>/x.app";
    const char* accepted = "XPC_NEW_CONNECTION_REPLY=1";
    // What is sent, the reply, and the settings afterwards.
    const std::tuple<std::vector<LXPCData>, std::string, std::string> rows[] = {
        {{Flag(LKeyTestConnection, false)}, "XPC_TEST_CONNECTION_REPLY=1", none},
        {{test, on, path}, "XPC_TEST_CONNECTION_REPLY=1", none},
        {{connect, identifier, path}, accepted, none},
        {{connect, identifier, Path("/elsewhere/" APP)}, accepted, none},
        {{connect, identifier, Path(LOGINHELPER_APP_PATH "/")}, "", none},
        {{connect, TextItem(LKeyMainAppBundleId, LOGINHELPER_APP_IDENTIFIER "2"), path}, "", none},
        {{connect, TextItem(LKeyMainAppBundleId, "COM.brelvanic.zubeqfree"), path}, "", none},
        {{connect, identifier}, "", none},
        {{connect, identifier, on, path}, accepted, none},
        {{on, Item(LKeyMainAppBundlePath, LXPCDataTypeInt64, 7)}, "", none},
        {{on, Path("/not\xffUTF-8")}, "", none},
        {{on, Path("/control\x01.app")}, "", none},
        {{on, Path(longPath.c_str())}, "", none},
        {{on, path}, "LAUNCH_AT_LOGIN_REPLY=1", some},
        {{on, query, Path("/Äpfel & <Birnen>/x.app")}, "LAUNCH_AT_LOGIN_REPLY=1", other},
        {{connect, off}, "", other},
        // Another type than declared reads as off.
        {{TextItem(LKeyLaunchAtLogin, "true")}, "LAUNCH_AT_LOGIN_REPLY=0", none},
        {{off, path}, "LAUNCH_AT_LOGIN_REPLY=0", none},
    };
    std::size_t unanswered = 0;
    for (const auto& row : rows) {
        const auto& [items, reply, after] = row;
        SCOPED_TRACE("row " + std::to_string(&row - rows) + ", first " + items[0].szName);
        Lines expected = {"reply QUERY_LAUNCH_AT_LOGIN_REPLY=" + std::to_string(after != none)};
        if (!reply.empty())
            expected.insert(expected.begin(), "reply " + reply);
        unanswered += 2 - expected.size();
        // Answers come in order: with the one to the query, that before it has come, or never will.
        Send(items);
        EXPECT_EQ(Ask({query}, expected.size()), expected);
        EXPECT_EQ(Login::Stored(), after);
    }

    Send({on, path}, false);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("sent") == 1; }));
    EXPECT_EQ(Ask({query}), Lines{"reply QUERY_LAUNCH_AT_LOGIN_REPLY=1"});

    Send({query, off, Flag(LKeyShutdownHelper)});
    EXPECT_EQ(helper->Wait(), 0);
    // One for each message without a reply, this one too, and one for the connection.
    EXPECT_TRUE(WaitFor([&] { return sink.Count("error 2") == unanswered + 2; }));
    EXPECT_EQ(Login::Stored(), some); // ends before anything else is done
}

TEST_F(Protocol, SecondHelperDoesNotTakeTheService) {
    const auto second = Login::StartHelper();
    EXPECT_EQ(second->ReadLine(), std::string(HELPER ": not serving: another helper or program has ") +
                                      LHelperServiceName + " in " + login.Path() + "/port-xpc");
    chmod((login.Path() + "/port-xpc").c_str(), 0755);
    EXPECT_EQ(Login::StartHelper()->ReadLine(),
              HELPER ": not serving: " + login.Path() + "/port-xpc has mode 0755, not 0700");
    chmod((login.Path() + "/port-xpc").c_str(), 0700);
    EXPECT_EQ(second->Wait(0), -1) << "stays idle";
    second->Kill(SIGTERM);
    EXPECT_EQ(second->Wait(1000), 0);
    EXPECT_EQ(Ask({test}), Lines{"reply XPC_TEST_CONNECTION_REPLY=1"});
    helper->Kill(SIGTERM);
    EXPECT_EQ(helper->Wait(1000), 0);
}

// Two peers ask for the end at once, now and then with a signal, while others ask and toggle.
TEST_F(Protocol, EndsInTheMiddleOfTraffic) {
    const int rounds = getenv("LFOUNDATION_TORTURE") != nullptr ? 1000 : 5;
    for (int round = 0; round < rounds; round++) {
        for (unsigned long n = 2; n <= 16; n++) {
            client.Connect(LHelperServiceName, n, true);
            for (int message = 0; message < 20; message++)
                Send({message % 4 == 0 ? Flag(LKeyLaunchAtLogin, false) : query}, true, n);
        }
        Send({Flag(LKeyShutdownHelper)}, true, 1);
        Send({Flag(LKeyShutdownHelper)}, true, 2);
        if (round % 3 == 0)
            helper->Kill(SIGTERM);
        ASSERT_EQ(helper->Wait(), 0) << "round " << round;
        for (unsigned long n = 1; n <= 16; n++)
            client.Disconnect(LHelperServiceName, n);
        Start();
    }
}

TEST_F(Protocol, IsWhatTheToolSpeaks) {
    const std::string bundle = login.Path() + "/" APP ".app";
    const std::string file = login.Path() + "/" + LHelperIdentifier + ".plist";
    const std::string lock = file + ".lock"; // a folder in its place: nothing can be saved
    const std::string unsaved = "\n" CTL ": not saved in " + file + ": it holds another setting\n";
    const std::tuple<std::string, int, std::string> rows[] = {
        {"test", 0, "helper: answers\n"},
        {"query --json", 0, "{\"command\":\"query\",\"status\":0,\"launchAtLogin\":false}\n"},
        {"identify", 0, "identified as the main application: yes\n"},
        {"enable '" + bundle + "/../" APP ".app'", 0, "launch at login: on\npath: " + bundle + "\n"},
        {"query", 0, "launch at login: on\n"},
        {"disable; rm " + lock + "; mkdir " + lock, 0, "launch at login: off\n"},
        {"enable /", 73, "launch at login: off" + unsaved},
        {"query; rmdir " + lock, 0, "launch at login: on\n"}, // what the helper holds and could not save
        {"enable " + login.Path(), 0,
         "launch at login: on\npath: " + login.Path() + "\n" CTL ": warning: " + login.Path() +
             " is no application bundle; the next login will launch nothing\n"},
        {"quit", 0, "helper: ended\n"},
        {"quit", 69, CTL ": nobody serves " ID "\n"},
        {"disable", 0, "launch at login: off\n"},
        {"forget", 0, "settings: removed\n"},
    };
    for (const auto& [words, status, text] : rows) {
        EXPECT_EQ(Login::Ctl(words), std::pair(status, text)) << words;
        // It answers the end before its socket is gone.
        EXPECT_TRUE(words != "quit" || helper->Wait() == 0);
    }
    EXPECT_FALSE(std::filesystem::exists(file) || std::filesystem::exists(lock));
}

} // namespace
