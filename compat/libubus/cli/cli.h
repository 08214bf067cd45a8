// The ubus command-line tool: what its commands share.
//
// A command returns the process's exit code: 0, a bus status, failed (reported by the command), or
// usage_error. The main program reports a positive status.
#pragma once

#include <libubus.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}

namespace cli {

constexpr int failed = -1;
constexpr int usage_error = -2;

struct cli_options {
    const char *socket = nullptr; // null: the default
    int timeout = 30;             // seconds
    bool timeout_given = false;
    bool simple = false;
    bool verbose = false;
};

using cli_command = int (*)(ubus_context *ctx, const cli_options &options, int argc, char **argv);

int list(ubus_context *ctx, const cli_options &options, int argc, char **argv);
int call(ubus_context *ctx, const cli_options &options, int argc, char **argv);
int listen(ubus_context *ctx, const cli_options &options, int argc, char **argv);
int send(ubus_context *ctx, const cli_options &options, int argc, char **argv);
int wait_for(ubus_context *ctx, const cli_options &options, int argc, char **argv);

// A message freed with the scope.
struct scoped_buffer : blob_buf {
    scoped_buffer() : blob_buf{} { blob_buf_init(this, 0); }
    ~scoped_buffer() { blob_buf_free(this); }
    scoped_buffer(const scoped_buffer &) = delete;
    scoped_buffer &operator=(const scoped_buffer &) = delete;
};

} // namespace cli
