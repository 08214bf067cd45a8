#include "platform/command.h"
#include "sandbox.h"

#include <cerrno>
#include <dlfcn.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr const char *path = "/tmp/net_stat.db";

class Database : public SandboxTest {
protected:
    void SetUp() override
    {
        SandboxTest::SetUp();
        if (!IsSkipped()) {
            write_file(path, "");
        }
    }
    static bool sqlite_loaded()
    {
        return read_file("/proc/self/maps").find("libsqlite3") != std::string::npos;
    }
    static int run(const char *sql)
    {
        sqlite3 *db = nullptr;
        int result = sqlite3_db_open(path, &db);
        if (result == 0) {
            result = sqlite3_db_execsql(db, sql);
        }
        return sqlite3_db_colse(db) | result;
    }
    // All values of a query, read with SQLite itself.
    static std::string query(const char *sql)
    {
        void *library = dlopen("libsqlite3.so.0", RTLD_NOW);
        auto *open_db = reinterpret_cast<int (*)(const char *, sqlite3 **)>(dlsym(library, "sqlite3_open"));
        auto *exec = reinterpret_cast<int (*)(sqlite3 *, const char *, int (*)(void *, int, char **, char **),
                                              void *, char **)>(dlsym(library, "sqlite3_exec"));
        auto *close_db = reinterpret_cast<int (*)(sqlite3 *)>(dlsym(library, "sqlite3_close"));
        sqlite3 *db = nullptr;
        std::string text;
        EXPECT_EQ(0, open_db(path, &db));
        EXPECT_EQ(0, exec(
                         db, sql,
                         [](void *out, int count, char **values, char **) {
                             for (int i = 0; i < count; i++) {
                                 *static_cast<std::string *>(out) +=
                                     std::string(values[i] ? values[i] : "NULL") + " ";
                             }
                             return 0;
                         },
                         &text, nullptr));
        EXPECT_EQ(0, close_db(db));
        return text;
    }
};

TEST_F(Database, CostsNothingBeforeTheFirstUse)
{
    EXPECT_FALSE(sqlite_loaded());
    EXPECT_EQ(0, sqlite3_db_colse(nullptr));
    EXPECT_FALSE(sqlite_loaded());
    EXPECT_EQ(0, run("CREATE TABLE t (a)"));
    EXPECT_TRUE(sqlite_loaded());
}

TEST_F(Database, StatementsTakeEffect)
{
    ASSERT_EQ(0, run("CREATE TABLE t (a, b)"));
    EXPECT_EQ(0, run("INSERT INTO t VALUES ('x', 1); INSERT INTO t VALUES ('y', 2)"));
    EXPECT_EQ("x 1 y 2 ", query("SELECT * FROM t ORDER BY b"));
    EXPECT_EQ(0, run("DELETE FROM t WHERE a = 'x'"));
    EXPECT_EQ("y 2 ", query("SELECT * FROM t"));
    EXPECT_EQ(0, run("SELECT * FROM t"));
    EXPECT_EQ(0, run(""));
}

TEST_F(Database, AbsentFileIsNotMade)
{
    unlink(path);
    StderrCapture err;
    auto *db = reinterpret_cast<sqlite3 *>(1);
    EXPECT_NE(0, sqlite3_db_open(path, &db));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(nullptr, db);
    EXPECT_FALSE(file_exists(path));
    EXPECT_EQ(
        "debug: sqlite3_db_open(/tmp/net_stat.db: unable to open database file): No such file or directory\n",
        err.text());
}

TEST_F(Database, BadStatementsAreErrorsAndLeaveTheHandleUsable)
{
    StderrCapture err;
    sqlite3 *db = nullptr;
    ASSERT_EQ(0, sqlite3_db_open(path, &db));
    EXPECT_NE(0, sqlite3_db_execsql(db, "NONSENSE"));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_NE(0, sqlite3_db_execsql(db, "INSERT INTO absent VALUES (1)"));
    EXPECT_NE(std::string::npos, err.text().find("no such table: absent"));
    EXPECT_EQ(0, sqlite3_db_execsql(db, "CREATE TABLE t (a UNIQUE)"));
    EXPECT_EQ(0, sqlite3_db_execsql(db, "INSERT INTO t VALUES (1)"));
    EXPECT_NE(0, sqlite3_db_execsql(db, "INSERT INTO t VALUES (1)"));
    EXPECT_EQ(EEXIST, errno);
    EXPECT_EQ(0, sqlite3_db_colse(db));
}

TEST_F(Database, FileThatIsNoDatabase)
{
    write_file(path, std::string(4096, 'x'));
    StderrCapture err;
    EXPECT_NE(0, run("SELECT 1 FROM sqlite_master"));
    EXPECT_NE(std::string::npos, err.text().find("file is not a database"));
}

TEST_F(Database, NullArgumentsAreErrors)
{
    StderrCapture err;
    sqlite3 *db = nullptr;
    EXPECT_NE(0, sqlite3_db_open(nullptr, &db));
    EXPECT_NE(0, sqlite3_db_open(path, nullptr));
    EXPECT_NE(0, sqlite3_db_execsql(nullptr, "SELECT 1"));
    EXPECT_EQ(EINVAL, errno);
    ASSERT_EQ(0, sqlite3_db_open(path, &db));
    EXPECT_NE(0, sqlite3_db_execsql(db, nullptr));
    EXPECT_EQ(0, sqlite3_db_colse(db));
}

// A child that locks the database, says so, and gives it back when told (or when it is ended).
class Locker {
public:
    Locker()
    {
        EXPECT_EQ(0, pipe(ready_));
        EXPECT_EQ(0, pipe(go_));
        child_ = fork();
        if (child_ == 0) {
            char byte = 'r';
            sqlite3 *db = nullptr;
            bool locked = sqlite3_db_open(path, &db) == 0 && sqlite3_db_execsql(db, "BEGIN EXCLUSIVE") == 0 &&
                          sqlite3_db_execsql(db, "INSERT INTO t VALUES ('child')") == 0;
            bool told = write(ready_[1], &byte, 1) == 1 && read(go_[0], &byte, 1) == 1;
            usleep(300'000); // so that the other side meets the lock; the outcome does not depend on it
            _exit(locked && told && sqlite3_db_execsql(db, "COMMIT") == 0 && sqlite3_db_colse(db) == 0 ? 0
                                                                                                       : 1);
        }
        char byte = 0;
        EXPECT_EQ(1, read(ready_[0], &byte, 1));
    }
    void give_back() { EXPECT_EQ(1, write(go_[1], "g", 1)); }
    int status()
    {
        int state = -1;
        waitpid(child_, &state, 0);
        return state;
    }

private:
    int ready_[2];
    int go_[2];
    pid_t child_;
};

TEST_F(Database, WaitsForOtherWriters)
{
    ASSERT_EQ(0, run("CREATE TABLE t (a)"));
    Locker other;
    other.give_back();
    EXPECT_EQ(0, run("INSERT INTO t VALUES ('us')"));
    EXPECT_EQ(0, other.status());
    EXPECT_EQ("child us ", query("SELECT a FROM t ORDER BY a"));
}

TEST_F(Database, DoesNotWaitForEver)
{
    ASSERT_EQ(0, run("CREATE TABLE t (a)"));
    Locker other;
    StderrCapture err;
    EXPECT_NE(0, run("INSERT INTO t VALUES ('us')"));
    EXPECT_NE(std::string::npos,
              err.text().find("(database is locked: INSERT INTO t VALUES ('us')): Device or resource busy"));
    other.give_back();
    EXPECT_EQ(0, other.status());
    EXPECT_EQ("child ", query("SELECT a FROM t"));
}

TEST_F(Database, FullDiskIsAnErrorAndKeepsTheRows)
{
    ASSERT_EQ(0, mount("tmpfs", "/tmp", "tmpfs", 0, "size=64k"));
    write_file(path, "");
    ASSERT_EQ(0, run("CREATE TABLE t (a); INSERT INTO t VALUES ('kept')"));
    StderrCapture err;
    std::string large = "INSERT INTO t VALUES ('" + std::string(200000, 'x') + "')";
    EXPECT_NE(0, run(large.c_str()));
    EXPECT_NE(std::string::npos, err.text().find("database or disk is full"));
    EXPECT_EQ("kept ", query("SELECT a FROM t"));
}

} // namespace
