#include "fixture.h"
#include "tool.h"

namespace {

class Cli : public UciTest {
protected:
    // The tool on this test's folders.
    Finished run(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(),
                         {"-c", path("config"), "-C", path("override"), "-t", path("saved")});
        return run_bare(arguments);
    }

    Finished run_bare(const std::vector<std::string> &arguments, const char *stdout_path = nullptr)
    {
        return run_tool(path("."), arguments, stdout_path);
    }
};

constexpr const char *sample =
    "config globals 'g'\n\toption u 'it'\\''s'\n\nconfig rule\n\toption name 'one'\n"
    "\nconfig interface 'lan'\n\tlist dns '1.1.1.1'\n\tlist dns '8.8.8.8'\n"
    "\tlist m 'a b'\n\tlist m c\n\nconfig rule\n";

TEST_F(Cli, ShowPackage)
{
    write("config/net", sample);
    Finished done = run({"show", "net"});
    EXPECT_EQ(0, done.status);
    EXPECT_EQ(
        "net.g=globals\nnet.g.u='it'\\''s'\nnet.@rule[0]=rule\nnet.@rule[0].name='one'\nnet.lan=interface\n"
        "net.lan.dns='1.1.1.1' '8.8.8.8'\nnet.lan.m='a b' 'c'\nnet.@rule[1]=rule\n",
        done.out);
    EXPECT_EQ("", done.err);
}

TEST_F(Cli, ShowGeneratedNames)
{
    write("config/net", sample);
    EXPECT_EQ("net.cfg0292bd=rule\nnet.cfg0292bd.name='one'\n", run({"-X", "show", "net.@rule[0]"}).out);
    EXPECT_EQ("net.cfg0292bd=rule\nnet.cfg0292bd.name='one'\n", run({"show", "net.cfg0292bd"}).out);
    EXPECT_EQ("net.cfg0292bd.name='one'\n", run({"show", "net.@rule[0].name"}).out);
}

TEST_F(Cli, ShowParts)
{
    write("config/net", sample);
    EXPECT_EQ("net.lan.dns='1.1.1.1';'8.8.8.8'\n", run({"-d", ";", "show", "net.lan.dns"}).out);
    EXPECT_EQ("net.g=globals\nnet.g.u='it'\\''s'\n", run({"show", "net.g"}).out);
}

TEST_F(Cli, ShowAllPackages)
{
    write("config/b", "config t n\n");
    write("config/a", "config t n\n");
    write("config/broken", "nonsense\n");
    Finished done = run({"show"});
    EXPECT_EQ(1, done.status);
    EXPECT_EQ("a.n=t\nb.n=t\n", done.out);
    EXPECT_EQ("uci: Parse error (invalid command) at line 1, byte 0\n", done.err);
}

TEST_F(Cli, Get)
{
    write("config/net", sample);
    EXPECT_EQ("it's\n", run({"get", "net.g.u"}).out);
    EXPECT_EQ("interface\n", run({"get", "net.lan"}).out);
    EXPECT_EQ("1.1.1.1 8.8.8.8\n", run({"get", "net.lan.dns"}).out);
    EXPECT_EQ("'a b' c\n", run({"get", "net.lan.m"}).out);
    EXPECT_EQ("one\n", run({"get", "net.@rule[0].name"}).out);
}

TEST_F(Cli, MissingEntries)
{
    write("config/net", sample);
    for (const char *missing : {"absent.x", "net.absent", "net.lan.absent", "net.@rule[2]"}) {
        Finished done = run({"get", missing});
        EXPECT_EQ(1, done.status) << missing;
        EXPECT_EQ("", done.out);
        EXPECT_EQ("uci: Entry not found\n", done.err) << missing;
    }
    Finished quiet = run({"-q", "get", "net.absent"});
    EXPECT_EQ(1, quiet.status);
    EXPECT_EQ("", quiet.err);
    EXPECT_EQ("uci: Invalid argument\n", run({"get", "net"}).err);
}

TEST_F(Cli, Export)
{
    write("config/net", "config rule\n\toption a '1'\n\nconfig t n\n\tlist l x\n");
    EXPECT_EQ("package net\n\nconfig rule\n\toption a '1'\n\nconfig t 'n'\n\tlist l 'x'\n\n",
              run({"export", "net"}).out);
    EXPECT_EQ("package net\n\nconfig rule 'cfg0192bd'\n\toption a '1'\n\nconfig t 'n'\n\tlist l 'x'\n\n",
              run({"-n", "export"}).out);
}

TEST_F(Cli, SavedChangesAreSeen)
{
    write("config/net", "config t n\n");
    write("saved/net", "net.n.a='1'\n");
    EXPECT_EQ("1\n", run({"get", "net.n.a"}).out);
    make_folder("more");
    write("more/net", "net.n.b='2'\nnet.n.a='older'\n");
    Finished done = run({"-p", path("more"), "show", "net"});
    EXPECT_EQ("net.n=t\nnet.n.b='2'\nnet.n.a='1'\n", done.out);
}

TEST_F(Cli, StrictnessIsAnOption)
{
    write("config/net", "bad\nconfig t n\n");
    EXPECT_EQ(1, run({"show", "net"}).status);
    EXPECT_EQ("net.n=t\n", run({"-S", "show", "net"}).out);
}

TEST_F(Cli, Usage)
{
    EXPECT_EQ(0, run_bare({}).status);
    EXPECT_NE(std::string::npos, run_bare({}).err.find("Usage: uci"));
    Finished help = run_bare({"--help"});
    EXPECT_EQ(0, help.status);
    EXPECT_NE(std::string::npos, help.out.find("Usage: uci"));
    EXPECT_EQ("", help.err);
    for (const std::vector<std::string> &wrong : std::vector<std::vector<std::string>>{{"get"},
                                                                                       {"get", "a", "b"},
                                                                                       {"show", "a", "b"},
                                                                                       {"export", "a", "b"},
                                                                                       {"set", "a.b.c=d"},
                                                                                       {"-Z"},
                                                                                       {"-c"},
                                                                                       {"-q"}}) {
        Finished done = run_bare(wrong);
        EXPECT_EQ(255, done.status) << wrong[0];
        EXPECT_NE(std::string::npos, done.err.find("Usage: uci")) << wrong[0];
        EXPECT_EQ("", done.out);
    }
}

TEST_F(Cli, FullDiskIsAnError)
{
    write("config/net", sample);
    Finished done = run_bare({"-c", path("config"), "show", "net"}, "/dev/full");
    EXPECT_EQ(1, done.status);
    EXPECT_NE(std::string::npos, done.err.find("No space left on device"));
}

} // namespace
