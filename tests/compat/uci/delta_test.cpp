// Changes saved by another program and not committed yet are part of what is read.
#include "fixture.h"

#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class Delta : public UciTest {
protected:
    std::string
    with(std::string_view changes,
         std::string_view text = "config t n\noption a 1\nlist l x\nlist l y\nlist l x\nconfig rule\n")
    {
        write("saved/net", changes);
        return parsed(text);
    }
};

constexpr const char *plain = "n=t\nn.a=1\nn.l=[x|y|x]\n*cfg0292bd=rule\n";

TEST_F(Delta, SetsOptionsAndSections)
{
    EXPECT_EQ("n=t\nn.a=2\nn.l=[x|y|x]\nn.b=it's\n*cfg0292bd=rule\nm=u\nm.c=3\n",
              with("net.n.a='2'\nnet.n.b='it'\\''s'\nnet.m='u'\nnet.m.c='3'\n"));
    EXPECT_EQ("n=other\nn.a=1\nn.l=z\n*cfg0292bd=rule\n", with("net.n='other'\nnet.n.l='z'\n"));
}

TEST_F(Delta, EmptyValueRemovesTheOption)
{
    EXPECT_EQ("n=t\nn.l=[x|y|x]\n*cfg0292bd=rule\n", with("net.n.a=''\nnet.n.none=''\n"));
}

TEST_F(Delta, ValuesMaySpanLines)
{
    EXPECT_EQ("n=t\nn.a=x\ny\nn.l=[x|y|x]\n*cfg0292bd=rule\n", with("net.n.a='x\ny'\n"));
}

TEST_F(Delta, AddsAnonymousSections)
{
    EXPECT_EQ(std::string(plain) + "*cfg0392bd=rule\n*cfg0392bd.k=v\n",
              with("+net.cfg0392bd='rule'\nnet.cfg0392bd.k='v'\n"));
    EXPECT_EQ(3, package->n_section);
}

TEST_F(Delta, RemovesSectionsAndOptions)
{
    EXPECT_EQ("n=t\nn.l=[x|y|x]\n", with("-net.n.a\n-net.cfg0292bd\n-net.absent\n-net.n.absent\n"));
}

TEST_F(Delta, RenamesSectionsAndOptions)
{
    EXPECT_EQ("n=t\nn.z=1\nn.l=[x|y|x]\nr=rule\n",
              with("@net.n.a='z'\n@net.cfg0292bd='r'\n@net.n.l='bad name'\n"));
}

TEST_F(Delta, NamesThatAreTakenAreNotGivenTwice)
{
    constexpr const char *two = "config t n\noption a 1\noption b 2\nconfig t m\noption c 3\n";
    EXPECT_EQ("n=t\nn.a=1\nn.b=2\nm=t\nm.c=3\n", with("@net.n='m'\n@net.n.a='b'\n@net.m='m'\n", two));
    // What follows in the same changes is still for the section that has the name.
    EXPECT_EQ("n=t\nn.a=1\nn.b=2\nm=t\nm.c=4\n", with("@net.n='m'\nnet.m.c='4'\n", two));
    // A section without a name of its own keeps the one it was given.
    EXPECT_EQ("*cfg0192bd=rule\nkept=rule\n",
              with("@net.cfg0192bd='kept'\n", "config rule\nconfig rule kept\n"));
}

TEST_F(Delta, Reorders)
{
    EXPECT_EQ("*cfg0292bd=rule\nn=t\nn.a=1\nn.l=[x|y|x]\n", with("^net.cfg0292bd='0'\n"));
    EXPECT_EQ("*cfg0292bd=rule\nn=t\nn.a=1\nn.l=[x|y|x]\n", with("^net.n='1'\n"));
    EXPECT_EQ("*cfg0292bd=rule\nn=t\nn.a=1\nn.l=[x|y|x]\n", with("^net.n='99'\n"));
    EXPECT_EQ(plain, with("^net.n='x'\n^net.n\n^net.n='-1'\n^net.n.a='0'\n"));
}

TEST_F(Delta, ListsGrowAndShrink)
{
    EXPECT_EQ("n=t\nn.a=[1|2]\nn.l=[y|q]\nn.new=[first]\n*cfg0292bd=rule\n",
              with("|net.n.l='q'\n~net.n.l='x'\n|net.n.a='2'\n|net.n.new='first'\n~net.n.absent='x'\n"));
    EXPECT_EQ("n=t\nn.a=1\n*cfg0292bd=rule\n", with("~net.n.l='x'\n~net.n.l='y'\n"));
}

TEST_F(Delta, LinesThatMakeNoSenseAreSkipped)
{
    EXPECT_EQ(
        "n=t\nn.a=5\nn.l=[x|y|x]\n*cfg0292bd=rule\n",
        with("rubbish\n\n''\n#x\nnet\nnet.\nnet..\n.n.a='7'\n=\n-\n+net.n='z'\n+net.q\nother.n.a='6'\nnet.n-"
             "n.a='"
             "8'\n"
             "net.absent.a='9'\nnet.q='bad type'\nnet.n.a='1' extra words\nnet.n.a=5\n|net.n\n~net.n.l\n"
             "net.n.a='open"));
}

TEST_F(Delta, NoFileNoChange)
{
    EXPECT_EQ(plain, parsed("config t n\noption a 1\nlist l x\nlist l y\nlist l x\nconfig rule\n"));
}

TEST_F(Delta, OtherFoldersComeFirstAndTheNewestLast)
{
    make_folder("more");
    ASSERT_EQ(UCI_OK, uci_add_delta_path(ctx, path("more").c_str()));
    EXPECT_EQ(UCI_ERR_DUPLICATE, uci_add_delta_path(ctx, path("more").c_str()));
    EXPECT_EQ(UCI_ERR_DUPLICATE, uci_add_delta_path(ctx, path("saved").c_str()));
    write("more/net", "net.n.a='more'\nnet.n.m='1'\n");
    EXPECT_EQ("n=t\nn.a=saved\nn.m=1\n", with("net.n.a='saved'\n", "config t n\n"));
    uci_set_savedir(ctx, path("more").c_str());
    EXPECT_EQ("n=t\nn.a=more\nn.m=1\n", parsed("config t n\n"));
}

TEST_F(Delta, FoldersThatOthersCanWriteToAreIgnored)
{
    for (const mode_t mode : {0777, 01777, 0775, 0702}) {
        ASSERT_EQ(0, chmod(path("saved").c_str(), mode));
        EXPECT_EQ(plain, with("net.n.a='2'\n")) << std::oct << mode;
    }
    ASSERT_EQ(0, chmod(path("saved").c_str(), 0700));
    EXPECT_NE(plain, with("net.n.a='2'\n"));
}

TEST_F(Delta, FoldersBehindALinkAreIgnored)
{
    std::filesystem::rename(path("saved"), path("elsewhere"));
    std::filesystem::create_directory_symlink("elsewhere", path("saved"));
    EXPECT_EQ(plain, with("net.n.a='2'\n"));
}

TEST_F(Delta, ForeignFoldersAndFilesAreIgnored)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can make files that are somebody else's";
    }
    constexpr uid_t nobody = 65534;
    EXPECT_NE(plain, with("net.n.a='2'\n"));
    ASSERT_EQ(0, chown(path("saved/net").c_str(), nobody, nobody));
    EXPECT_EQ(plain, with("net.n.a='2'\n"));
    ASSERT_EQ(0, chown(path("saved/net").c_str(), 0, 0));
    ASSERT_EQ(0, chown(path("saved").c_str(), nobody, nobody));
    EXPECT_EQ(plain, with("net.n.a='2'\n"));
}

TEST_F(Delta, DirectPathIgnoresThem)
{
    write("saved/net", "net.n.a='2'\n");
    write("config/net", "config t n\noption a 1\n");
    ASSERT_EQ(UCI_OK, uci_load(ctx, path("config/net").c_str(), &package));
    EXPECT_EQ("n=t\nn.a=1\n", content());
    EXPECT_FALSE(package->has_delta);
}

} // namespace
