// ubus: talks to the bus from a shell.
#include "cli.h"

#include <cstdio>
#include <getopt.h>

namespace {

struct command_entry {
    const char *name;
    cli::cli_command run;
};

constexpr command_entry commands[] = {
    {"list", cli::list}, {"call", cli::call},         {"listen", cli::listen},
    {"send", cli::send}, {"wait_for", cli::wait_for},
};

void usage(FILE *out)
{
    fprintf(out, "Usage: ubus [<options>] <command> [arguments...]\n"
                 "Options:\n"
                 " -s <socket>   socket of the broker (default: " UBUS_UNIX_SOCKET ")\n"
                 " -t <seconds>  how long call and wait_for wait (default: 30), or listen listens\n"
                 " -S            simple output, for scripts\n"
                 " -v            more output\n"
                 " --help        this text\n"
                 "Commands:\n"
                 " list [<path>]                      objects, with -v their methods; a path may end in '*'\n"
                 " call <path> <method> [<message>]   call a method; the message is a JSON object\n"
                 " listen [<pattern>...]              print events; a pattern may end in '*'\n"
                 " send <type> [<message>]            send an event\n"
                 " wait_for <object>...               wait until all objects are there\n");
}

int run(const cli::cli_options &options, const command_entry &command, int argc, char **argv)
{
    ubus_context *ctx = ubus_connect(options.socket);
    if (ctx == nullptr) {
        if (!options.simple) {
            fprintf(stderr, "Failed to connect to ubus\n");
        }
        return cli::failed;
    }
    const int result = command.run(ctx, options, argc, argv);
    ubus_free(ctx);
    uloop_done();
    if (result > 0 && !options.simple) {
        fprintf(stderr, "Command failed: %s\n", ubus_strerror(result));
    }
    return result;
}

} // namespace

int main(int argc, char **argv)
{
    static const option long_options[] = {{"help", no_argument, nullptr, 'h'}, {}};
    cli::cli_options options;
    int letter;

    // Options may follow the command: "ubus list -v" is what fingers type.
    while ((letter = getopt_long(argc, argv, "s:t:Svh", long_options, nullptr)) != -1) {
        switch (letter) {
        case 's':
            options.socket = optarg;
            break;
        case 't':
            options.timeout = atoi(optarg);
            options.timeout_given = true;
            break;
        case 'S':
            options.simple = true;
            break;
        case 'v':
            options.verbose = true;
            break;
        case 'h':
            usage(stdout);
            return 0;
        default:
            usage(stderr);
            return 1;
        }
    }
    if (optind >= argc) {
        usage(stderr);
        return 1;
    }
    int result = cli::usage_error;
    for (const command_entry &command : commands) {
        if (strcmp(command.name, argv[optind]) == 0) {
            result = run(options, command, argc - optind - 1, argv + optind + 1);
        }
    }
    if (result == cli::usage_error) {
        usage(stderr);
    }
    // Negative results leave as 256 less their value.
    return result;
}
