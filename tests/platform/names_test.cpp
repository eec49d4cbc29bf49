#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/name_functions.h"
#include "platform/net_headers.h"
#include "platform/socket.h"

namespace vantlow {
namespace {

class Names : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(start_sockets()); }
};

TEST_F(Names, LocalNamesAndLiteralsNeedNoNetwork) {
    for (const char* name : {"localhost", "machine.LocalHost."}) {
        const NameAnswer local = resolve_name(name, 8080);
        EXPECT_FALSE(local.addresses.empty()) << name << local.text;
        for (const SocketAddress& address : local.addresses) {
            EXPECT_EQ(address.port(), 8080);
            EXPECT_TRUE(address.host() == "127.0.0.1" || address.host() == "::1") << address.host();
            EXPECT_EQ(std::count(local.addresses.begin(), local.addresses.end(), address), 1);
        }
    }
    EXPECT_NE(name_functions_source(), "built-in");
    const NameAnswer literal = resolve_name("2001:db8::1", 21);
    ASSERT_EQ(literal.addresses.size(), 1U);
    EXPECT_EQ(literal.addresses[0].host(), "2001:db8::1");
}

TEST_F(Names, ANameThatCannotBeIsAnErrorWithASentence) {
    for (const std::string& name : {std::string(), std::string("localhost\0.example", 18)}) {
        const NameAnswer none = resolve_name(name, 80);
        EXPECT_TRUE(none.addresses.empty());
        EXPECT_TRUE(none.definite);
        EXPECT_NE(none.error, 0);
        EXPECT_FALSE(none.text.empty());
    }
    const NameAnswer invalid = resolve_name("no-such-name.invalid", 80);  // RFC 6761: never exists
    EXPECT_TRUE(invalid.addresses.empty());
    EXPECT_NE(invalid.error, 0);
}

class BuiltInNames : public Names {
  protected:
    int ask(const char* node, const char* service, int flags = 0, int family = AF_UNSPEC) {
        addrinfo hints{};
        hints.ai_family = family;
        hints.ai_flags = flags;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* list = nullptr;
        const int error = functions.get_address(node, service, &hints, &list);
        found.clear();
        for (const addrinfo* info = list; info != nullptr; info = info->ai_next) {
            found.emplace_back(info->ai_addr, static_cast<std::size_t>(info->ai_addrlen));
        }
        if (list != nullptr) functions.free_address(list);
        return error;
    }

    NameFunctions functions = built_in_name_functions();
    std::vector<SocketAddress> found;
};

TEST_F(BuiltInNames, FindIpv4Addresses) {
    ASSERT_EQ(ask("localhost", "80"), 0);
    ASSERT_FALSE(found.empty());
    EXPECT_EQ(found[0], *SocketAddress::from_literal("127.0.0.1", 80));
    ASSERT_EQ(ask("192.0.2.1", nullptr, AI_NUMERICHOST), 0);
    EXPECT_EQ(found.at(0), *SocketAddress::from_literal("192.0.2.1", 0));
    ASSERT_EQ(ask(nullptr, "8080", AI_PASSIVE), 0);
    EXPECT_EQ(found.at(0), *SocketAddress::from_literal("0.0.0.0", 8080));
    ASSERT_EQ(ask(nullptr, "8080"), 0);
    EXPECT_EQ(found.at(0), *SocketAddress::from_literal("127.0.0.1", 8080));
}

TEST_F(BuiltInNames, RefuseWhatTheyCannot) {
    EXPECT_EQ(ask("localhost", "80", AI_NUMERICHOST), EAI_NONAME);
    EXPECT_EQ(ask("::1", "80", AI_NUMERICHOST), EAI_NONAME);
    EXPECT_EQ(ask("127.0.0.1", "80", 0, AF_INET6), EAI_FAMILY);
    EXPECT_EQ(ask("127.0.0.1", "http"), EAI_SERVICE);
    EXPECT_EQ(ask("127.0.0.1", "65536"), EAI_SERVICE);
    EXPECT_EQ(ask(nullptr, nullptr), EAI_NONAME);
    EXPECT_TRUE(found.empty());
}

TEST_F(BuiltInNames, WriteAddresses) {
    const auto address = *SocketAddress::from_literal("192.0.2.33", 8080);
    const auto* record = static_cast<const sockaddr*>(address.data());
    const int size = static_cast<int>(address.size());
    char host[16] = {};
    char port[8] = {};
    ASSERT_EQ(functions.get_name(record, size, host, sizeof host, port, sizeof port, NI_NUMERICHOST), 0);
    EXPECT_STREQ(host, "192.0.2.33");
    EXPECT_STREQ(port, "8080");
    EXPECT_NE(functions.get_name(record, size, host, 10, nullptr, 0, NI_NUMERICHOST), 0)
        << "no room for the zero";
    const auto other = *SocketAddress::from_literal("::1", 1);
    const auto* other_record = static_cast<const sockaddr*>(other.data());
    EXPECT_EQ(
        functions.get_name(other_record, static_cast<int>(other.size()), host, sizeof host, nullptr, 0, 0),
        EAI_FAMILY);
}

}  // namespace
}  // namespace vantlow
