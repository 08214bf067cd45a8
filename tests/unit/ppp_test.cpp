// PPP accounts and login records.

#include "daemon_test.h"
#include "ppp/auth_records.h"

namespace unit {
namespace {

class Ppp : public DaemonTest {
protected:
    static Message account()
    {
        return Message()
            .text("username", "joe")
            .text("provider", "isp")
            .text("password", "pw")
            .text("ipaddr", "1.2.3.4");
    }
    static Message login(const char *action)
    {
        return Message()
            .text("type", "pppoe")
            .text("username", "joe")
            .text("action", action)
            .text("ipaddr", "1.2.3.4")
            .text("dial_mac", "2:0:0:0:0:1")
            .text("dial_ip", "9.9.9.9");
    }
};

TEST_F(Ppp, AccountsGoToTheSecrets)
{
    const Lines added = "cslib_entry_add('joe', 'isp', 'pw', '1.2.3.4')";
    const Lines removed = "cslib_entry_del('joe', 'isp')";
    expect_call("ivarode.pppuser", "add", account(), 0, {added});
    expect_call("ivarode.pppuser", "del", account(), 0, {removed});
    fail("cslib_entry_");
    expect_call("ivarode.pppuser", "add", account(), 9, {added, error("chap secret entry add failed\n")});
    expect_call("ivarode.pppuser", "del", account(), 9, {removed, error("chap secret entry del failed\n")});
}

TEST_F(Ppp, AnEmptyPasswordIsAPassword)
{
    expect_call("ivarode.pppuser", "add",
                Message().text("username", "").text("provider", "").text("password", "").text("ipaddr", ""),
                0, {"cslib_entry_add('', '', '', '')"});
}

const Lines opened = "sqlite3_db_open('/tmp/calmora/db/net_stat.db')";
const Lines closed = "sqlite3_db_colse(db)";
const Lines clock_read = "timelib_curtime_str_get(32)";
const std::string insert_text =
    "insert into pppauth_user_table(type,username,ipaddr,dial_mac,dial_ip,uptime) values(";
const std::string inserted =
    insert_text + "'pppoe','joe','1.2.3.4','2:0:0:0:0:1','9.9.9.9','2026-01-02 03:04:05');";
const std::string deleted =
    "delete from pppauth_user_table\twhere type='pppoe' and username='joe' and ipaddr='1.2.3.4'";

Lines run(const std::string &statement)
{
    return "sqlite3_db_execsql(db, " + quote(statement) + ")";
}

TEST_F(Ppp, ALoginIsARow)
{
    for (const char *action : {"up", "upgrade", "up ", "updown"}) {
        expect_call("ivarode.pppauth", "notify", login(action), 0,
                    {opened, clock_read, run(inserted), closed});
    }
}

TEST_F(Ppp, ALogoutDeletesRows)
{
    for (const char *action : {"down", "downstairs"}) {
        expect_call("ivarode.pppauth", "notify", login(action), 0, {opened, run(deleted), closed});
    }
    // Whatever the MAC.
    expect_call("ivarode.pppauth", "notify",
                Message()
                    .text("type", "pppoe")
                    .text("username", "joe")
                    .text("action", "down")
                    .text("ipaddr", "1.2.3.4"),
                0, {opened, run(deleted), closed});
}

TEST_F(Ppp, OtherActionsAreIgnored)
{
    for (const char *action : {"", "u", "Up", "UP", "dow", "Down", "restart", " up"}) {
        expect_call("ivarode.pppauth", "notify", login(action), 0, {});
    }
}

TEST_F(Ppp, ALoginWithoutMacAndAddressOfThePeer)
{
    expect_call("ivarode.pppauth", "notify",
                Message().text("type", "t").text("username", "u").text("action", "up").text("ipaddr", "i"), 0,
                {opened, clock_read, run(insert_text + "'t','u','i','','','2026-01-02 03:04:05');"), closed});
    EXPECT_EQ(pppauth_db_insert(nullptr, "t", "i", nullptr, nullptr), 0);
    expect_trace({opened, clock_read, run(insert_text + "'t','','i','','','2026-01-02 03:04:05');"), closed});
}

TEST_F(Ppp, ValuesGoIntoTheStatementAsTheyAre)
{
    const char *value = "x'; drop table pppauth_user_table; -- %s%n\xff";
    const std::string text = value;
    EXPECT_EQ(pppauth_db_insert(value, value, value, value, value), 0);
    expect_trace({opened, clock_read,
                  run(insert_text + "'" + text + "','" + text + "','" + text + "','" + text + "','" + text +
                      "','2026-01-02 03:04:05');"),
                  closed});
}

TEST_F(Ppp, ALongTimeIsCut)
{
    world.time = std::string(100, '9');
    EXPECT_EQ(pppauth_db_insert("u", "t", "i", "m", "d"), 0);
    expect_trace({opened, clock_read,
                  run(insert_text + "'t','u','i','m','d','" + std::string(31, '9') + "');"), closed});
}

TEST_F(Ppp, StatementsAreCutAt1022Characters)
{
    for (const size_t length : {800U, 1000U, 5000U}) {
        const std::string name(length, 'n');
        const std::string insert = insert_text + "'t','" + name + "','i','m','d','2026-01-02 03:04:05');";
        const std::string remove =
            "delete from pppauth_user_table\twhere type='t' and username='" + name + "' and ipaddr='i'";
        EXPECT_EQ(pppauth_db_insert(name.c_str(), "t", "i", "m", "d"), 0);
        EXPECT_EQ(pppauth_db_delete(name.c_str(), "t", "i", "m"), 0);
        expect_trace({opened, clock_read, run(insert.substr(0, 1022)), closed, opened,
                      run(remove.substr(0, 1022)), closed});
    }
    // One character less or more around the end.
    const size_t fixed =
        insert_text.size() + std::string{"'t','','i','m','d','2026-01-02 03:04:05');"}.size();
    for (const size_t total : {1021U, 1022U, 1023U, 1024U}) {
        const std::string name(total - fixed, 'n');
        const std::string insert = insert_text + "'t','" + name + "','i','m','d','2026-01-02 03:04:05');";
        ASSERT_EQ(insert.size(), total);
        EXPECT_EQ(pppauth_db_insert(name.c_str(), "t", "i", "m", "d"), 0);
        expect_trace({opened, clock_read, run(insert.substr(0, 1022)), closed});
    }
}

TEST_F(Ppp, ADatabaseThatCannotBeOpened)
{
    fail("sqlite3_db_open(");
    EXPECT_EQ(pppauth_db_insert("u", "t", "i", "m", "d"), -22);
    EXPECT_EQ(pppauth_db_delete("u", "t", "i", "m"), -22);
    expect_trace(
        {opened, error("net auth db record open error\n"), opened, error("net auth db delete open error\n")});
    expect_call("ivarode.pppauth", "notify", login("up"), 1,
                {opened, error("net auth db record open error\n")});
    expect_call("ivarode.pppauth", "notify", login("down"), 1,
                {opened, error("net auth db delete open error\n")});
}

TEST_F(Ppp, AStatementThatFails)
{
    fail("sqlite3_db_execsql(");
    EXPECT_EQ(pppauth_db_insert("joe", "pppoe", "1.2.3.4", "2:0:0:0:0:1", "9.9.9.9"), -22);
    expect_trace({opened, clock_read, run(inserted),
                  error("net auth db record exec sql error,sql=" + inserted + "\n"), closed});
    EXPECT_EQ(pppauth_db_delete("joe", "pppoe", "1.2.3.4", "m"), -22);
    expect_trace({opened, run(deleted), error("net auth db delete exec sql error\n"), closed});
    expect_call("ivarode.pppauth", "notify", login("up"), 1,
                {opened, clock_read, run(inserted),
                 error("net auth db record exec sql error,sql=" + inserted + "\n"), closed});
}

TEST_F(Ppp, ADatabaseThatCannotBeClosedIsNoFailure)
{
    fail("sqlite3_db_colse(");
    EXPECT_EQ(pppauth_db_insert("u", "t", "i", "m", "d"), 0);
    EXPECT_EQ(pppauth_db_delete("u", "t", "i", "m"), 0);
}

} // namespace
} // namespace unit
