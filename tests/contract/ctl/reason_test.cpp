// What the log says of a client that has no address: which of its lines counts.

#include "../sandbox.h"
#include "facts/router.h"

namespace {

class ReasonTest : public SandboxTest {};

constexpr const char *bound = "wan1 bound 203.0.113.50/24 gateway 203.0.113.1 for 120 s: bound";
constexpr const char *lost = "wan1 has no lease";
constexpr const char *refusal = "wan1: nak address not available";

std::string reason_of(const char *service, const std::vector<std::string> &lines)
{
    const bool dials = std::string(service) == "pppoe";
    std::string log = "Sun Nov 22 14:00:00 2026 daemon.info ivarode-wan: wan11: nak no\n";
    for (const std::string &line : lines) {
        log += "Sun Nov 22 14:00:01 2026 daemon.info " + std::string(dials ? "pppd[7]: " : "ivarode-wan: ") +
               line + "\n";
    }
    write_file("/var/log/messages", log + "Sun Nov 22 14:00:02 2026 daemon.info pppd[77]: Exit.\n");
    const ctl::json facts(json_tokener_parse(
        ("{\"clients\":[{\"name\":\"wan1\",\"pid\":7,\"service\":\"" + std::string(service) + "\"}]}")
            .c_str()));
    ctl::add_last_words(facts.get());
    json_object *client = json_object_array_get_idx(ctl::get(facts.get(), "clients"), 0);
    EXPECT_EQ(ctl::text_of(client, "last_words"), lines.empty() ? "" : lines.back());
    return std::string(ctl::text_of(client, "reason"));
}

TEST_F(ReasonTest, OfADhcpClient)
{
    EXPECT_EQ(reason_of("dhcp", {}), "");
    EXPECT_EQ(reason_of("dhcp", {lost}), lost);
    EXPECT_EQ(reason_of("dhcp", {lost, bound}), bound);
    EXPECT_EQ(reason_of("dhcp", {bound, lost}), lost);
    EXPECT_EQ(reason_of("dhcp", {bound, refusal, lost}), refusal) << "the lease goes because of it";
    EXPECT_EQ(reason_of("dhcp", {bound, refusal, lost, lost}), lost) << "another client asks in vain";
    EXPECT_EQ(reason_of("dhcp", {bound, refusal, lost, bound}), bound);
    const std::string refused = "wan1 bound 192.168.1.50/24 is refused: it overlaps 192.168.1.1/24 on lan1";
    EXPECT_EQ(reason_of("dhcp", {lost, refused}), refused);
}

TEST_F(ReasonTest, OfAPppoeClient)
{
    const std::string begun = "pppd 2.4.9 started by root, uid 0";
    const std::string silence = "Timeout waiting for PADO packets";
    const std::string session = "PPP session is 2";
    const std::string wrong = "CHAP authentication failed";
    const std::string up = "local  IP address 100.64.0.10";
    const std::string gone = "No response to 3 echo-requests";
    const std::string end = "Connection terminated.";
    EXPECT_EQ(reason_of("pppoe", {begun}), begun);
    EXPECT_EQ(reason_of("pppoe", {begun, silence, "Unable to complete PPPoE Discovery"}), silence);
    EXPECT_EQ(reason_of("pppoe", {begun, silence, session}), session);
    EXPECT_EQ(reason_of("pppoe", {begun, session, wrong, end, "Modem hangup", session, "Connect: a <--> b"}),
              wrong);
    EXPECT_EQ(reason_of("pppoe", {begun, session, wrong, end, silence}), silence);
    EXPECT_EQ(reason_of("pppoe", {begun, session, up, end, "Modem hangup"}), end);
    EXPECT_EQ(reason_of("pppoe", {begun, session, up, gone, end, silence, silence}), gone);
    EXPECT_EQ(reason_of("pppoe", {begun, session, up, gone, end, session, wrong}), wrong);
}

TEST(Reason, IsKnownWithoutALog)
{
    EXPECT_EQ(ctl::meaning_of("Exit."), nullptr);
    for (const char *words : {" has no lease", "started by "}) {
        ASSERT_NE(ctl::meaning_of(words), nullptr);
        EXPECT_STREQ(ctl::meaning_of(words)->words, words);
    }
}

} // namespace
