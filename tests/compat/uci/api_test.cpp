#include "fixture.h"

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <sys/stat.h>
#include <vector>

namespace {

class Api : public UciTest {
protected:
    std::string exported() const
    {
        char *text = nullptr;
        size_t size = 0;
        FILE *stream = open_memstream(&text, &size);
        EXPECT_EQ(UCI_OK, uci_export(ctx, stream, package, true));
        fclose(stream);
        std::string copy(text, size);
        free(text);
        return copy;
    }
};

#if defined(__x86_64__)
TEST(Layout, SizesAreThoseOfTheRealLibrary)
{
    EXPECT_EQ(16u, sizeof(uci_list));
    EXPECT_EQ(32u, sizeof(uci_element));
    EXPECT_EQ(336u, sizeof(uci_context));
    EXPECT_EQ(128u, sizeof(uci_package));
    EXPECT_EQ(72u, sizeof(uci_section));
    EXPECT_EQ(64u, sizeof(uci_option));
    EXPECT_EQ(72u, sizeof(uci_ptr));
}
#endif

TEST(Context, FreshOne)
{
    uci_context *ctx = uci_alloc_context();
    ASSERT_NE(nullptr, ctx);
    EXPECT_EQ(9, ctx->flags);
    EXPECT_STREQ("/etc/config", ctx->confdir);
    EXPECT_STREQ("/var/run/uci", ctx->conf2dir);
    EXPECT_STREQ("/tmp/.uci", ctx->savedir);
    EXPECT_TRUE(uci_list_empty(&ctx->root));
    uci_free_context(ctx);
    uci_free_context(nullptr);
}

TEST_F(Api, LoadOfAMissingFile)
{
    auto *untouched = reinterpret_cast<uci_package *>(1);
    EXPECT_EQ(UCI_ERR_NOTFOUND, uci_load(ctx, "absent", &untouched));
    EXPECT_EQ(reinterpret_cast<uci_package *>(1), untouched);
    EXPECT_EQ("Entry not found", error_text());
    EXPECT_EQ("uci: Entry not found", error_text("uci"));
}

TEST_F(Api, LoadOfABrokenFileTouchesNothing)
{
    auto *untouched = reinterpret_cast<uci_package *>(1);
    write("config/net", "config t n\noption a 1\nbroken\n");
    EXPECT_EQ(UCI_ERR_PARSE, uci_load(ctx, "net", &untouched));
    EXPECT_EQ(reinterpret_cast<uci_package *>(1), untouched);
    EXPECT_TRUE(uci_list_empty(&ctx->root));
    EXPECT_EQ("x: Parse error (invalid command) at line 3, byte 0", error_text("x"));
    EXPECT_EQ(UCI_ERR_NOTFOUND, uci_load(ctx, "absent", &untouched));
    EXPECT_EQ("Entry not found", error_text());
}

TEST_F(Api, NamesOfPackages)
{
    uci_package *p = nullptr;
    EXPECT_EQ(UCI_ERR_INVAL, uci_load(ctx, "a b", &p));
    EXPECT_EQ(UCI_ERR_INVAL, uci_load(ctx, "a/b", &p));
    EXPECT_EQ(UCI_ERR_INVAL, uci_load(ctx, "", &p));
    EXPECT_EQ(UCI_ERR_INVAL, uci_load(ctx, nullptr, &p));
    EXPECT_EQ(UCI_ERR_INVAL, uci_load(ctx, "net", nullptr));
    EXPECT_EQ(UCI_ERR_NOTFOUND, uci_load(ctx, ".hidden", &p));
    EXPECT_EQ(UCI_ERR_NOTFOUND, uci_load(ctx, "../x", &p));
    EXPECT_EQ(nullptr, p);
    write("config/a-b_9", "config t n\n");
    EXPECT_EQ(UCI_OK, uci_load(ctx, "a-b_9", &p));
}

TEST_F(Api, LoadTwiceNeedsUnload)
{
    ASSERT_EQ(UCI_OK, load("config t n\n"));
    uci_package *again = nullptr;
    EXPECT_EQ(UCI_ERR_DUPLICATE, uci_load(ctx, "net", &again));
    EXPECT_EQ(nullptr, again);
    EXPECT_EQ(package, uci_lookup_package(ctx, "net"));
    EXPECT_EQ(UCI_OK, uci_unload(ctx, package));
    EXPECT_EQ(nullptr, uci_lookup_package(ctx, "net"));
    EXPECT_EQ(UCI_OK, uci_load(ctx, "net", &package));
}

TEST_F(Api, SeveralPackagesSideBySide)
{
    ASSERT_EQ(UCI_OK, load("config t n\n"));
    write("config/other", "config u m\n");
    uci_package *other = nullptr;
    ASSERT_EQ(UCI_OK, uci_load(ctx, "other", &other));
    EXPECT_EQ("n=t\n", content());
    EXPECT_EQ("m=u\n", content(other));
    EXPECT_EQ(UCI_OK, uci_unload(ctx, package));
    package = nullptr;
    EXPECT_EQ("m=u\n", content(other));
}

TEST_F(Api, OverrideFolderComesFirst)
{
    write("override/net", "config t over\n");
    EXPECT_EQ("over=t\n", parsed("config t n\n"));
    EXPECT_TRUE(package->uses_conf2);
    ASSERT_EQ(UCI_OK, uci_set_conf2dir(ctx, ""));
    EXPECT_EQ("n=t\n", parsed("config t n\n"));
    EXPECT_FALSE(package->uses_conf2);
    EXPECT_TRUE(package->has_delta);
    EXPECT_EQ(path("config/net"), package->path);
}

TEST_F(Api, DirectPath)
{
    write("any.file", "config t n\n");
    ASSERT_EQ(UCI_OK, uci_load(ctx, path("any.file").c_str(), &package));
    EXPECT_STREQ("any.file", package->e.name);
    EXPECT_EQ("n=t\n", content());
}

TEST_F(Api, DirectPathAsLongAsPathsCanBe)
{
    write("any.file", "config t n\n");
    std::string longest = path("any.file");
    while (longest.size() + 2 < PATH_MAX) {
        longest.insert(longest.rfind('/'), "/.");
    }
    ASSERT_EQ(UCI_OK, uci_load(ctx, longest.c_str(), &package));
    EXPECT_EQ(longest, package->path);
    EXPECT_EQ("n=t\n", content());
    uci_package *beyond = nullptr;
    EXPECT_EQ(UCI_ERR_INVAL, uci_load(ctx, ("//" + longest).c_str(), &beyond));
}

TEST_F(Api, OnlyRegularFilesAreTaken)
{
    uci_package *p = nullptr;
    std::filesystem::create_directory(path("config/folder"));
    ASSERT_EQ(0, mkfifo(path("config/pipe").c_str(), 0600));
    EXPECT_EQ(UCI_ERR_NOTFOUND, uci_load(ctx, "folder", &p));
    EXPECT_EQ(UCI_ERR_NOTFOUND, uci_load(ctx, "pipe", &p));
    std::filesystem::create_symlink("folder", path("config/link"));
    EXPECT_EQ(UCI_ERR_NOTFOUND, uci_load(ctx, "link", &p));
    std::filesystem::create_symlink("self", path("config/self"));
    EXPECT_EQ(UCI_ERR_IO, uci_load(ctx, "self", &p));
    EXPECT_EQ("I/O error", error_text());
}

TEST_F(Api, Lookups)
{
    ASSERT_EQ(UCI_OK, load("config t n\noption a 1\nlist l x\n"));
    uci_section *n = uci_lookup_section(ctx, package, "n");
    ASSERT_NE(nullptr, n);
    EXPECT_EQ(package, n->package);
    EXPECT_STREQ("t", n->type);
    EXPECT_EQ(nullptr, uci_lookup_section(ctx, package, "m"));
    EXPECT_STREQ("1", uci_lookup_option_string(ctx, n, "a"));
    EXPECT_EQ(nullptr, uci_lookup_option_string(ctx, n, "b"));
    EXPECT_EQ(nullptr, uci_lookup_option_string(ctx, n, "l"));
    ASSERT_NE(nullptr, uci_lookup_option(ctx, n, "l"));
    EXPECT_EQ(UCI_TYPE_LIST, uci_lookup_option(ctx, n, "l")->type);
    auto *e = reinterpret_cast<uci_element *>(1);
    EXPECT_EQ(UCI_ERR_NOTFOUND, uci_lookup_next(ctx, &e, &package->sections, "m"));
    EXPECT_EQ(nullptr, e);
}

struct Path {
    const char *text;
    bool extended;
    int code;
    int flags;
    const char *found; // name of the last element
};

void PrintTo(const Path &path, std::ostream *stream)
{
    *stream << path.text;
}

class Paths : public UciTest, public testing::WithParamInterface<Path> {};

TEST_P(Paths, Lookup)
{
    write("config/net",
          "config rule\noption a 1\nconfig t n\noption a 2\nconfig rule\noption a 3\nconfig x.y\n");
    std::string text = GetParam().text;
    uci_ptr ptr{};
    EXPECT_EQ(GetParam().code, uci_lookup_ptr(ctx, &ptr, text.data(), GetParam().extended));
    if (GetParam().code == UCI_OK) {
        EXPECT_EQ(GetParam().flags, static_cast<int>(ptr.flags));
        ASSERT_NE(nullptr, ptr.last);
        EXPECT_STREQ(GetParam().found, ptr.last->name);
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, Paths,
    testing::Values(Path{"net", false, 0, 3, "net"}, Path{"net.n", false, 0, 3, "n"},
                    Path{"net.n.a", false, 0, 3, "a"}, Path{"net.n.b", false, 0, 1, "n"},
                    Path{"net.m", false, 0, 1, "net"}, Path{"net.m.a", false, 0, 1, "net"},
                    Path{"absent", false, 3, 0, ""}, Path{"net.@rule[0]", true, 0, 7, "cfg0192bd"},
                    Path{"net.@rule[1].a", true, 0, 7, "a"}, Path{"net.@rule[-1]", true, 0, 7, "cfg0392bd"},
                    Path{"net.@rule[-2]", true, 0, 7, "cfg0192bd"}, Path{"net.@rule[-3]", true, 0, 5, "net"},
                    Path{"net.@rule[2]", true, 0, 5, "net"}, Path{"net.@t[0]", true, 0, 7, "n"},
                    Path{"net.@[1]", true, 0, 7, "n"}, Path{"net.@[-3]", true, 0, 7, "n"},
                    Path{"net.@x.y[0]", true, 0, 7, "cfg04b7c4"}, Path{"net.@rule[0]", false, 2, 0, ""},
                    Path{"net.@rule", true, 5, 0, ""}, Path{"net.@rule[]", true, 5, 0, ""},
                    Path{"net.@rule[x]", true, 5, 0, ""}, Path{"net.@rule[0]x", true, 5, 0, ""},
                    Path{"net.@rule[0", true, 5, 0, ""}, Path{"", true, 5, 0, ""}, Path{".n", true, 5, 0, ""},
                    Path{"net.", true, 5, 0, ""}, Path{"net.n.", true, 5, 0, ""},
                    Path{"net.n.a.b", true, 5, 0, ""}, Path{"net.n-n", true, 5, 0, ""},
                    Path{"n t", true, 5, 0, ""}, Path{"net.n.a=v", true, 0, 3, "a"}));

TEST_F(Api, PathIsTakenApart)
{
    char text[] = "net.n.a=some=value";
    uci_ptr ptr{};
    ASSERT_EQ(UCI_OK, uci_parse_ptr(ctx, &ptr, text));
    EXPECT_EQ(UCI_TYPE_OPTION, ptr.target);
    EXPECT_STREQ("net", ptr.package);
    EXPECT_STREQ("n", ptr.section);
    EXPECT_STREQ("a", ptr.option);
    EXPECT_STREQ("some=value", ptr.value);
}

TEST_F(Api, LookupWithoutTextTakesTheNames)
{
    ASSERT_EQ(UCI_OK, load("config t n\noption a 1\n"));
    uci_ptr ptr{};
    ptr.package = "net";
    ptr.section = "n";
    ptr.option = "a";
    ASSERT_EQ(UCI_OK, uci_lookup_ptr(ctx, &ptr, nullptr, false));
    ASSERT_NE(nullptr, ptr.o);
    EXPECT_STREQ("1", ptr.o->v.string);
    uci_ptr bare{};
    EXPECT_EQ(UCI_ERR_INVAL, uci_lookup_ptr(ctx, &bare, nullptr, false));
    uci_ptr broken{};
    broken.package = "net";
    broken.section = "@rule";
    EXPECT_EQ(UCI_ERR_PARSE, uci_lookup_ptr(ctx, &broken, nullptr, true));
}

TEST_F(Api, ListOfConfigs)
{
    for (const char *name :
         {"config/b", "config/a", "override/b", "override/c", "config/.x", "config/d.bak"}) {
        write(name, "");
    }
    std::filesystem::create_directory(path("config/folder"));
    char **names = nullptr;
    ASSERT_EQ(UCI_OK, uci_list_configs(ctx, &names));
    std::vector<std::string> found;
    for (char **name = names; *name; name++) {
        found.emplace_back(*name);
    }
    free(names);
    EXPECT_EQ((std::vector<std::string>{"a", "b", "c"}), found);
}

TEST_F(Api, ExportReadsBackTheSame)
{
    ASSERT_EQ(UCI_OK,
              load("config t n\noption a 'it'\\''s \"x\"\nline'\nlist l ''\nlist l 'a b'\nconfig rule\n"));
    std::string before = content();
    EXPECT_EQ("package net\n\nconfig t 'n'\n\toption a 'it'\\''s \"x\"\nline'\n\tlist l ''\n\tlist l 'a b'\n"
              "\nconfig rule\n\n",
              exported());
    EXPECT_EQ(before, parsed(exported()));
}

TEST_F(Api, ExportKeepsUnnamedSectionsApartFromNamedOnes)
{
    // Without the first one, "rule" would be read as cfg0192bd, which the last one is.
    write("saved/net", "-net.first\n");
    ASSERT_EQ(UCI_OK, load("config t first\nconfig rule\nconfig u cfg0392bd\nconfig t cfg0192bd\n"));
    const std::string text = exported();
    EXPECT_EQ("package net\n\nconfig rule 'cfg0492bd'\n\nconfig u 'cfg0392bd'\n\nconfig t 'cfg0192bd'\n\n",
              text);
    write("saved/net", "");
    EXPECT_EQ("cfg0492bd=rule\ncfg0392bd=u\ncfg0192bd=t\n", parsed(text));
    // One that comes before is no other when the file is read again.
    EXPECT_EQ("cfg0292bd=t\n*cfg0292bd=rule\n", parsed("config t cfg0292bd\nconfig rule\n"));
    EXPECT_EQ("package net\n\nconfig t 'cfg0292bd'\n\nconfig rule\n\n", exported());
}

TEST_F(Api, NullArgumentsAreInvalid)
{
    EXPECT_EQ(UCI_ERR_INVAL, uci_set_confdir(ctx, nullptr));
    EXPECT_EQ(UCI_ERR_INVAL, uci_set_savedir(ctx, nullptr));
    EXPECT_EQ(UCI_ERR_INVAL, uci_add_delta_path(ctx, nullptr));
    EXPECT_EQ(UCI_ERR_INVAL, uci_unload(ctx, nullptr));
    EXPECT_EQ(UCI_ERR_INVAL, uci_list_configs(ctx, nullptr));
    EXPECT_EQ("Invalid argument", error_text());
}

} // namespace
