// The helper's answers: one conversation over the real socket, message by message.
#include <LoginHelperContract.h>
#include <csignal>
#include <gtest/gtest.h>

#include "app/Login.h"
#include "xpc/RecordingClient.h"

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
    Protocol()
        : application({login.MakeBundle("2.14") + "/Contents/MacOS/Zubeq Free"}),
          started(application.ReadLine()), helper(Login::StartHelper()) {
        for (const char* key :
             {LReplyTestConnection, LReplyNewConnection, LReplyLaunchAtLogin, LReplyQueryLaunchAtLogin})
            client.AddKey(key, LXPCDataTypeBool);
    }

    // The helper's service is there some time after its process.
    void SetUp() override {
        ASSERT_EQ(helper->ReadLine(),
                  std::string("loginhelper: Zubeq Free is running: serving ") + LHelperServiceName);
        for (int tries = 0; sink.Count("reply") == 0 && tries < 1000; ++tries) {
            client.Disconnect(LHelperServiceName, 1);
            client.Connect(LHelperServiceName, 1, true);
            Ask({test});
        }
        ASSERT_EQ(sink.Lines().back(), "reply XPC_TEST_CONNECTION_REPLY=1");
    }

    void Send(const std::vector<LXPCData>& items, bool wantReply = true, unsigned long connection = 1) {
        client.SendMessage(LHelperServiceName, connection, items.data(), items.size(), wantReply);
    }
    // Sends, and gives what follows: so many events, or fewer when they do not come.
    Lines Ask(const std::vector<LXPCData>& items, std::size_t events = 1) {
        const std::size_t before = sink.Lines().size();
        Send(items);
        WaitFor([&] { return sink.Lines().size() >= before + events; });
        const Lines all = sink.Lines();
        return {all.begin() + static_cast<std::ptrdiff_t>(before), all.end()};
    }

    const LXPCData test = Flag(LKeyTestConnection);
    const LXPCData query = Flag(LKeyQueryLaunchAtLogin);

    Login login;
    ChildProcess application;
    std::string started;
    std::unique_ptr<ChildProcess> helper;
    RecordingSink sink;
    LXPCClient client{&sink};
};

TEST_F(Protocol, MessageByMessage) {
    static const std::string longPath(5000, 'x');
    const LXPCData connect = Flag(LKeyNewConnection);
    const LXPCData identifier = TextItem(LKeyMainAppBundleId, LMainAppIdentifier);
    const LXPCData path = Path("/Applications/Zubeq Free.app");
    const LXPCData on = Flag(LKeyLaunchAtLogin);
    const LXPCData off = Flag(LKeyLaunchAtLogin, false);
    const LXPCData textAsSetting = TextItem(LKeyLaunchAtLogin, "true");
    const LXPCData numberAsPath = Item(LKeyMainAppBundlePath, LXPCDataTypeInt64, 7);
    const std::string none = "off (none)";
    const std::string some = "on /Applications/Zubeq Free.app";
    const std::string other = "on /Äpfel & <Birnen>/x.app";
    const char* accepted = "XPC_NEW_CONNECTION_REPLY=1";
    const char* stored = "LAUNCH_AT_LOGIN_REPLY=1";
    const char* removed = "LAUNCH_AT_LOGIN_REPLY=0";
    const struct {
        std::vector<LXPCData> items;
        std::string reply;
        std::string after;
    } rows[] = {
        {{Flag(LKeyTestConnection, false)}, "XPC_TEST_CONNECTION_REPLY=1", none},
        {{test, on, path}, "XPC_TEST_CONNECTION_REPLY=1", none},
        {{connect, identifier, path}, accepted, none},
        {{connect, identifier, Path("/elsewhere/Zubeq Free")}, accepted, none},
        {{connect, identifier, Path("/Applications/zubeq free.app")}, "", none},
        {{connect, identifier, Path("/Applications/Zubeq Free.app/")}, "", none},
        {{connect, TextItem(LKeyMainAppBundleId, "com.brelvanic.zubeqfree2"), path}, "", none},
        {{connect, TextItem(LKeyMainAppBundleId, "COM.brelvanic.zubeqfree"), path}, "", none},
        {{connect, path}, "", none},
        {{connect, identifier}, "", none},
        {{connect, identifier, on, path}, accepted, none},
        {{on, numberAsPath}, "", none},
        {{on, Path("/not\xffUTF-8")}, "", none},
        {{on, Path(longPath.c_str())}, "", none},
        {{Flag("LAUNCH_AT_LOGIN "), path}, "", none},
        {{on, path}, stored, some},
        {{on, query, Path("/Äpfel & <Birnen>/x.app")}, stored, other},
        {{connect, off}, "", other},
        {{textAsSetting}, removed, none}, // another type than declared reads as off
        {{off, path}, removed, none},
    };
    for (const auto& row : rows) {
        std::string name;
        for (const LXPCData& item : row.items)
            name += std::string(item.szName) + " ";
        Lines expected = {"reply QUERY_LAUNCH_AT_LOGIN_REPLY=" + std::to_string(row.after != none)};
        if (!row.reply.empty())
            expected.insert(expected.begin(), "reply " + row.reply);
        // Answers come in order: with the one to the query, that before it has come, or never will.
        Send(row.items);
        EXPECT_EQ(Ask({query}, expected.size()), expected) << name;
        EXPECT_EQ(Login::Stored(), row.after) << name;
    }

    Send({on, path}, false);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("sent") == 1; }));
    EXPECT_EQ(Ask({query}), Lines{"reply QUERY_LAUNCH_AT_LOGIN_REPLY=1"});
    EXPECT_EQ(Login::Stored(), some);

    const std::size_t replies = sink.Count("reply");
    Send({query, off, Flag(LKeyShutdownHelper)});
    EXPECT_EQ(helper->Wait(), 0);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("error 2") != 0; }));
    EXPECT_EQ(sink.Count("reply"), replies);
    EXPECT_EQ(Login::Stored(), some); // ends before anything else is done
}

TEST_F(Protocol, SecondHelperDoesNotTakeTheService) {
    const auto second = Login::StartHelper();
    EXPECT_NE(second->ReadLine().find("serving "), std::string::npos);
    EXPECT_TRUE(second->ReadLine().starts_with("loginhelper: not serving: "));
    EXPECT_EQ(second->Wait(0), -1) << "stays idle";
    second->Kill(SIGTERM);
    EXPECT_EQ(second->Wait(1000), 0);
    EXPECT_EQ(Ask({test}), Lines{"reply XPC_TEST_CONNECTION_REPLY=1"});
    helper->Kill(SIGTERM);
    EXPECT_EQ(helper->Wait(1000), 0);
}

TEST_F(Protocol, TwoPeersEndItAtOnce) {
    client.Connect(LHelperServiceName, 2, true);
    Send({Flag(LKeyShutdownHelper)}, true, 1);
    Send({Flag(LKeyShutdownHelper)}, true, 2);
    helper->Kill(SIGTERM);
    EXPECT_EQ(helper->Wait(), 0);
}

} // namespace
