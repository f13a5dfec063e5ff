// The helper's answers: one conversation over the real socket, message by message.
#include <LoginHelperContract.h>
#include <csignal>
#include <gtest/gtest.h>
#include <port/seams.h>
#include <variant>
#include <xpc/xpc.h>

#include "app/Login.h"

namespace {

constexpr const char* kPath = "/Applications/Zubeq Free.app";
constexpr int kPatience = 10000; // milliseconds

struct Item {
    const char* key;
    std::variant<bool, const char*, std::int64_t> value;
};

// The names and values of all reply keys in a reply, or the error.
std::string Describe(xpc_object_t reply) {
    if (xpc_get_type(reply) == XPC_TYPE_ERROR)
        return "error";
    std::string text;
    for (const char* key :
         {LReplyTestConnection, LReplyNewConnection, LReplyLaunchAtLogin, LReplyQueryLaunchAtLogin})
        if (xpc_dictionary_get_value(reply, key) != nullptr)
            text += std::string(key) + (xpc_dictionary_get_bool(reply, key) ? "=1" : "=0");
    return text;
}

class Peer {
public:
    Peer() : connection(xpc_connection_create_mach_service(LHelperServiceName, nullptr, 0)) {
        xpc_connection_set_event_handler(connection, [](xpc_object_t) {});
        xpc_connection_resume(connection);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() {
        xpc_connection_cancel(connection);
        port_main_queue_drain(0);
        xpc_release(connection);
    }

    // The reply goes to `answer` when it comes.
    void Send(const std::vector<Item>& items, std::shared_ptr<std::string> answer) {
        const xpc_object_t message = Message(items);
        xpc_connection_send_message_with_reply(connection, message, nullptr,
                                               [answer](xpc_object_t reply) { *answer = Describe(reply); });
        xpc_release(message);
    }
    void SendWithoutReply(const std::vector<Item>& items) {
        const xpc_object_t message = Message(items);
        xpc_connection_send_message(connection, message);
        xpc_release(message);
    }
    // Sends and waits for the reply; empty when none came.
    std::string Ask(const std::vector<Item>& items, int milliseconds = kPatience) {
        const auto answer = std::make_shared<std::string>();
        Send(items, answer);
        for (const long end = NowMilliseconds() + milliseconds; answer->empty() && NowMilliseconds() < end;)
            port_main_queue_drain(10);
        return *answer;
    }

private:
    static xpc_object_t Message(const std::vector<Item>& items) {
        const xpc_object_t message = xpc_dictionary_create(nullptr, nullptr, 0);
        for (const Item& item : items) {
            if (const auto* boolean = std::get_if<bool>(&item.value))
                xpc_dictionary_set_bool(message, item.key, *boolean);
            else if (const auto* text = std::get_if<const char*>(&item.value))
                xpc_dictionary_set_string(message, item.key, *text);
            else
                xpc_dictionary_set_int64(message, item.key, std::get<std::int64_t>(item.value));
        }
        return message;
    }

    xpc_connection_t connection;
};

class Protocol : public testing::Test {
protected:
    Protocol()
        : application({login.MakeBundle("2.14") + "/Contents/MacOS/Zubeq Free"}),
          started(application.ReadLine()), helper(Login::StartHelper()) {}

    // The helper's service is there some time after its process.
    void SetUp() override {
        ASSERT_EQ(helper->ReadLine(),
                  std::string("loginhelper: Zubeq Free is running: serving ") + LHelperServiceName);
        std::string answer = "error";
        for (const long end = NowMilliseconds() + kPatience; answer == "error" && NowMilliseconds() < end;) {
            port_main_queue_drain(5);
            answer = Peer().Ask({{LKeyTestConnection, true}});
        }
        ASSERT_EQ(answer, "XPC_TEST_CONNECTION_REPLY=1");
    }

    Login login;
    ChildProcess application;
    std::string started;
    std::unique_ptr<ChildProcess> helper;
};

TEST_F(Protocol, MessageByMessage) {
    static const std::string longPath(5000, 'x');
    const Item test = {LKeyTestConnection, true};
    const Item connect = {LKeyNewConnection, true};
    const Item identifier = {LKeyMainAppBundleId, LMainAppIdentifier};
    const Item path = {LKeyMainAppBundlePath, kPath};
    const Item on = {LKeyLaunchAtLogin, true};
    const Item off = {LKeyLaunchAtLogin, false};
    const Item query = {LKeyQueryLaunchAtLogin, true};
    const auto pathOf = [](const char* text) { return Item{LKeyMainAppBundlePath, text}; };
    const auto identifierOf = [](const char* text) { return Item{LKeyMainAppBundleId, text}; };
    const Item numberAsPath = {LKeyMainAppBundlePath, std::int64_t{7}};
    const std::string none = "(none)";
    const char* accepted = "XPC_NEW_CONNECTION_REPLY=1";
    const char* stored = "LAUNCH_AT_LOGIN_REPLY=1";
    const char* removed = "LAUNCH_AT_LOGIN_REPLY=0";
    const struct {
        std::vector<Item> items;
        const char* reply;
        std::string pathAfter;
    } rows[] = {
        {{test}, "XPC_TEST_CONNECTION_REPLY=1", none},
        {{{LKeyTestConnection, false}}, "XPC_TEST_CONNECTION_REPLY=1", none},
        {{test, on, path}, "XPC_TEST_CONNECTION_REPLY=1", none},
        {{query}, "QUERY_LAUNCH_AT_LOGIN_REPLY=0", none},
        {{connect, identifier, path}, accepted, none},
        {{connect, identifier, pathOf("/elsewhere/Zubeq Free")}, accepted, none},
        {{connect, identifier, pathOf("/Applications/zubeq free.app")}, "", none},
        {{connect, identifier, pathOf("/Applications/Zubeq Free.app/")}, "", none},
        {{connect, identifier, pathOf("")}, "", none},
        {{connect, identifier, numberAsPath}, "", none},
        {{connect, identifierOf("com.brelvanic.zubeqfree2"), path}, "", none},
        {{connect, identifierOf("COM.brelvanic.zubeqfree"), path}, "", none},
        {{connect, path}, "", none},
        {{connect, identifier}, "", none},
        {{connect, on, path}, "", none},
        {{connect, identifier, on, path}, accepted, none},
        {{on}, "", none},
        {{on, numberAsPath}, "", none},
        {{on, pathOf("/not\xffUTF-8")}, "", none},
        {{on, pathOf(longPath.c_str())}, "", none},
        {{identifier}, "", none},
        {{{"LAUNCH_AT_LOGIN ", true}, path}, "", none},
        {{{"UNKNOWN", true}}, "", none},
        {{on, path}, stored, kPath},
        {{query}, "QUERY_LAUNCH_AT_LOGIN_REPLY=1", kPath},
        {{on, query, pathOf("/Äpfel & <Birnen>/x.app")}, stored, "/Äpfel & <Birnen>/x.app"},
        {{connect, off}, "", "/Äpfel & <Birnen>/x.app"},
        {{{LKeyLaunchAtLogin, "true"}}, removed, none}, // another type than declared reads as off
        {{query}, "QUERY_LAUNCH_AT_LOGIN_REPLY=0", none},
        {{on, path}, stored, kPath},
        {{off}, removed, none},
        {{off, path}, removed, none},
    };
    Peer peer;
    for (const auto& row : rows) {
        std::string name;
        for (const Item& item : row.items)
            name += std::string(item.key) + " ";
        const auto answer = std::make_shared<std::string>();
        peer.Send(row.items, answer);
        // Answers come in order: once this one is here, the one before has come, or never will.
        ASSERT_NE(peer.Ask({query}), "error") << name;
        EXPECT_EQ(*answer, row.reply) << name;
        EXPECT_EQ(Login::StoredPath(), row.pathAfter) << name;
        EXPECT_EQ(Login::StoredSetting(), row.pathAfter != none) << name;
    }

    peer.SendWithoutReply({on, path});
    EXPECT_EQ(peer.Ask({query}), "QUERY_LAUNCH_AT_LOGIN_REPLY=1");
    EXPECT_EQ(Login::StoredPath(), kPath);

    EXPECT_EQ(peer.Ask({query, off, {LKeyShutdownHelper, true}}), "error");
    EXPECT_EQ(helper->Wait(), 0);
    EXPECT_EQ(Login::StoredPath(), kPath); // ends before anything else is done
}

TEST_F(Protocol, SecondHelperDoesNotTakeTheService) {
    const auto second = Login::StartHelper();
    EXPECT_NE(second->ReadLine().find("serving "), std::string::npos);
    EXPECT_TRUE(second->ReadLine().starts_with("loginhelper: not serving: "));
    EXPECT_EQ(Peer().Ask({{LKeyTestConnection, true}}), "XPC_TEST_CONNECTION_REPLY=1");
    EXPECT_EQ(second->Wait(0), -1) << "stays idle";
    second->Kill(SIGTERM);
    EXPECT_EQ(second->Wait(1000), 0);
    EXPECT_EQ(Peer().Ask({{LKeyTestConnection, true}}), "XPC_TEST_CONNECTION_REPLY=1");
    helper->Kill(SIGTERM);
    EXPECT_EQ(helper->Wait(1000), 0);
}

TEST_F(Protocol, TwoPeersEndItAtOnce) {
    Peer one;
    Peer two;
    const auto first = std::make_shared<std::string>();
    one.Send({{LKeyShutdownHelper, true}}, first);
    two.Send({{LKeyShutdownHelper, true}}, std::make_shared<std::string>());
    helper->Kill(SIGTERM);
    EXPECT_EQ(helper->Wait(), 0);
}

} // namespace
