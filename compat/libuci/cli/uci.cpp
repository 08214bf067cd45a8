// The command "uci": shows, gets and exports configuration. It changes nothing.
#include <cstdlib>
#include <cstring>
#include <uci.h>
#include <unistd.h>

namespace {

constexpr int exit_usage = 255;

struct settings {
    const char *program;
    const char *delimiter = " ";
    bool quiet = false;
    bool extended = true;
};

void usage(const settings &set, FILE *stream)
{
    fprintf(stream,
            "Usage: %s [options] command [arguments]\n"
            "\n"
            "Commands:\n"
            "\tshow   [package[.section[.option]]]\n"
            "\tget    package.section[.option]\n"
            "\texport [package]\n"
            "\n"
            "Options:\n"
            "\t-c dir  folder of the packages (default %s)\n"
            "\t-C dir  folder looked into before it (default %s)\n"
            "\t-d text separator of list values in \"show\" (default: a blank)\n"
            "\t-n      name unnamed sections in \"export\"\n"
            "\t-N      do not (default)\n"
            "\t-p dir  one more folder of saved changes\n"
            "\t-P, -t dir  folder of the newest saved changes (default %s)\n"
            "\t-q      no error messages\n"
            "\t-s      reject a package with syntax errors (default)\n"
            "\t-S      skip lines with syntax errors\n"
            "\t-X      show generated names of unnamed sections\n"
            "\t-h, --help\n"
            "\n"
            "This program reads only; changes are made with an editor.\n",
            set.program, UCI_CONFDIR, UCI_CONF2DIR, UCI_SAVEDIR);
}

int complain(const settings &set, uci_context *ctx)
{
    if (!set.quiet) {
        uci_perror(ctx, set.program);
    }
    return 1;
}

void put_quoted(const char *value)
{
    putchar('\'');
    for (; *value; value++) {
        if (*value == '\'') {
            fputs("'\\''", stdout);
        } else {
            putchar(*value);
        }
    }
    putchar('\'');
}

void show_name(const settings &set, const uci_section *section)
{
    printf("%s.", section->package->e.name);
    if (!section->anonymous || !set.extended) {
        printf("%s", section->e.name);
        return;
    }
    int index = 0;
    uci_element *element;
    uci_foreach_element(&section->package->sections, element)
    {
        if (element == &section->e) {
            break;
        }
        index += strcmp(uci_to_section(element)->type, section->type) == 0 ? 1 : 0;
    }
    printf("@%s[%d]", section->type, index);
}

void show_option(const settings &set, const uci_option *option)
{
    show_name(set, option->section);
    printf(".%s=", option->e.name);
    if (option->type == UCI_TYPE_STRING) {
        put_quoted(option->v.string);
    } else {
        const char *separator = "";
        uci_element *item;
        uci_foreach_element(&option->v.list, item)
        {
            fputs(separator, stdout);
            put_quoted(item->name);
            separator = set.delimiter;
        }
    }
    putchar('\n');
}

void show_section(const settings &set, const uci_section *section)
{
    show_name(set, section);
    printf("=%s\n", section->type);
    uci_element *element;
    uci_foreach_element(&section->options, element)
    {
        show_option(set, uci_to_option(element));
    }
}

void show_package(const settings &set, const uci_package *package)
{
    uci_element *element;
    uci_foreach_element(&package->sections, element)
    {
        show_section(set, uci_to_section(element));
    }
}

// Finds what a path names. The exit status: 1 with a message when there is nothing.
int look_up(const settings &set, uci_context *ctx, uci_ptr &ptr, char *path)
{
    if (uci_lookup_ptr(ctx, &ptr, path, true) == UCI_OK && !(ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE)) {
        ctx->err = UCI_ERR_NOTFOUND;
    }
    return ctx->err == UCI_OK ? 0 : complain(set, ctx);
}

int show_path(const settings &set, uci_context *ctx, char *path)
{
    uci_ptr ptr;
    if (int status = look_up(set, ctx, ptr, path)) {
        return status;
    }
    // An unnamed section is shown by its place among the others only where they are shown, too.
    settings alone = set;
    alone.extended = false;
    if (ptr.o) {
        show_option(alone, ptr.o);
    } else if (ptr.s) {
        show_section(alone, ptr.s);
    } else {
        show_package(set, ptr.p);
    }
    return 0;
}

int get(const settings &set, uci_context *ctx, char *path)
{
    uci_ptr ptr;
    if (int status = look_up(set, ctx, ptr, path)) {
        return status;
    }
    if (!ptr.s) {
        ctx->err = UCI_ERR_INVAL;
        return complain(set, ctx);
    }
    if (!ptr.o) {
        puts(ptr.s->type);
        return 0;
    }
    if (ptr.o->type == UCI_TYPE_STRING) {
        puts(ptr.o->v.string);
        return 0;
    }
    const char *separator = "";
    uci_element *item;
    uci_foreach_element(&ptr.o->v.list, item)
    {
        fputs(separator, stdout);
        if (strpbrk(item->name, " \t\r\n\v\f")) {
            put_quoted(item->name);
        } else {
            fputs(item->name, stdout);
        }
        separator = " ";
    }
    putchar('\n');
    return 0;
}

int export_package(const settings &set, uci_context *ctx, const char *name)
{
    uci_package *package = nullptr;
    if (uci_load(ctx, name, &package) != UCI_OK || uci_export(ctx, stdout, package, true) != UCI_OK) {
        return complain(set, ctx);
    }
    return 0;
}

// A command without a path works on each package in turn; one that cannot be read does not hide the others.
int each_package(const settings &set, uci_context *ctx, bool exporting)
{
    char **names = nullptr;
    if (uci_list_configs(ctx, &names) != UCI_OK) {
        return complain(set, ctx);
    }
    int result = 0;
    for (char **name = names; *name; name++) {
        result |= exporting ? export_package(set, ctx, *name) : show_path(set, ctx, *name);
    }
    free(names);
    return result;
}

int run(const settings &set, uci_context *ctx, int count, char **words)
{
    const char *command = words[0];
    if (strcmp(command, "get") == 0 && count == 2) {
        return get(set, ctx, words[1]);
    }
    if (strcmp(command, "show") == 0 && count <= 2) {
        return count == 2 ? show_path(set, ctx, words[1]) : each_package(set, ctx, false);
    }
    if (strcmp(command, "export") == 0 && count <= 2) {
        return count == 2 ? export_package(set, ctx, words[1]) : each_package(set, ctx, true);
    }
    usage(set, stderr);
    return exit_usage;
}

// 0 to go on, otherwise the exit status plus one.
int read_options(settings &set, uci_context *ctx, int argc, char **argv)
{
    for (int c; (c = getopt(argc, argv, "+c:C:d:hnNp:P:qsSt:X")) != -1;) {
        int code = UCI_OK;
        switch (c) {
        case 'c':
            code = uci_set_confdir(ctx, optarg);
            break;
        case 'C':
            code = uci_set_conf2dir(ctx, optarg);
            break;
        case 'd':
            set.delimiter = optarg;
            break;
        case 'n':
            ctx->flags = static_cast<uci_flags>(ctx->flags | UCI_FLAG_EXPORT_NAME);
            break;
        case 'N':
            ctx->flags = static_cast<uci_flags>(ctx->flags & ~UCI_FLAG_EXPORT_NAME);
            break;
        case 'p':
            uci_add_delta_path(ctx, optarg);
            break;
        case 'P':
        case 't':
            code = uci_set_savedir(ctx, optarg);
            break;
        case 'q':
            set.quiet = true;
            break;
        case 's':
            ctx->flags = static_cast<uci_flags>(ctx->flags | UCI_FLAG_STRICT);
            break;
        case 'S':
            ctx->flags = static_cast<uci_flags>(ctx->flags & ~UCI_FLAG_STRICT);
            break;
        case 'X':
            set.extended = false;
            break;
        case 'h':
            usage(set, stdout);
            return 1;
        default:
            usage(set, stderr);
            return exit_usage + 1;
        }
        if (code != UCI_OK) {
            return complain(set, ctx) + 1;
        }
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    settings set{argc > 0 ? argv[0] : "uci"};
    if (argc <= 1 || strcmp(argv[1], "--help") == 0) {
        usage(set, argc <= 1 ? stderr : stdout);
        return 0;
    }
    uci_context *ctx = uci_alloc_context();
    if (!ctx) {
        fprintf(stderr, "%s: Out of memory\n", set.program);
        return 1;
    }
    int status = read_options(set, ctx, argc, argv);
    if (status > 0) {
        status--;
    } else if (optind >= argc) {
        usage(set, stderr);
        status = exit_usage;
    } else {
        status = run(set, ctx, argc - optind, argv + optind);
    }
    uci_free_context(ctx);
    if (fflush(stdout) != 0 || ferror(stdout)) {
        perror(set.program);
        return 1;
    }
    return status;
}
