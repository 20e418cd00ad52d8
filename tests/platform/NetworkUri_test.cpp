// network::uri as this project uses it: components of a topic URI and refusal of non-URIs.

#include "network/uri.hpp"

#include <gtest/gtest.h>

namespace {

TEST(NetworkUriTest, TopicUriIsTakenApart) {
    const network::uri uri("krin.ps://127.0.0.1:5555/LumoMode");
    EXPECT_EQ(uri.scheme().to_string(), "krin.ps");
    EXPECT_EQ(std::string(uri.authority()), "127.0.0.1:5555");
    EXPECT_EQ(std::string(uri.host()), "127.0.0.1");
    EXPECT_EQ(std::string(uri.port()), "5555");
    EXPECT_EQ(uri.port<int>(), 5555);
    EXPECT_EQ(std::string(uri.path()), "/LumoMode");
    EXPECT_FALSE(uri.has_query());
    EXPECT_FALSE(uri.has_fragment());
}

TEST(NetworkUriTest, QueryFragmentAndUserInfoAreSeparated) {
    const network::uri uri("krin.ps://me@host:1/a/b?x=1#f");
    EXPECT_EQ(std::string(uri.user_info()), "me");
    EXPECT_EQ(std::string(uri.authority()), "me@host:1");
    EXPECT_EQ(std::string(uri.path()), "/a/b");
    EXPECT_EQ(std::string(uri.query()), "x=1");
    EXPECT_EQ(std::string(uri.fragment()), "f");
}

TEST(NetworkUriTest, MissingComponentsAreEmpty) {
    const network::uri uri("krin.ps://host");
    EXPECT_FALSE(uri.has_port());
    EXPECT_TRUE(uri.port().empty());
    EXPECT_FALSE(uri.has_path());
    EXPECT_TRUE(uri.path().empty());
}

TEST(NetworkUriTest, Ipv6HostKeepsItsBrackets) {
    const network::uri uri("krin.ps://[::1]:7/t");
    EXPECT_EQ(std::string(uri.host()), "[::1]");
    EXPECT_EQ(std::string(uri.authority()), "[::1]:7");
}

TEST(NetworkUriTest, CopiesStayValid) {
    network::uri copy;
    {
        const network::uri original("krin.ps://h:1/topic");
        copy = original;
    }
    EXPECT_EQ(std::string(copy.path()), "/topic");
}

TEST(NetworkUriTest, TextThatIsNoUriThrowsSyntaxError) {
    EXPECT_THROW(network::uri("not a uri"), network::uri_syntax_error);
    EXPECT_THROW(network::uri(""), network::uri_syntax_error);
    EXPECT_THROW(network::uri("krin.ps://h:1/a b"), network::uri_syntax_error);
}

TEST(NetworkUriTest, ErrorCodeFormReportsInsteadOfThrowing) {
    std::error_code ec;
    const network::uri uri(std::string("::bad"), ec);
    EXPECT_EQ(ec, network::uri_error::invalid_syntax);
    EXPECT_TRUE(uri.empty());
}

}  // namespace
