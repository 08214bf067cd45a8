// Both ends that the daemon needs on the bus, for C libraries without a C++ library:
//
//     small-peer serve                             the sibling that the daemon's start waits for
//     small-peer call OBJECT METHOD [FIELD...]     prints the status and the answer's bytes
//
// A FIELD is NAME=TEXT, NAME#NUMBER or NAME+TEXT (an array of one text). Both wait for the broker, a call for
// its object.
extern "C" {
#include <libubox/blobmsg.h>
#include <libubus.h>
}

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

constexpr int patience_ms = 30000, step_ms = 20;

// Asks until there is something, or too long.
template <typename Question> bool wait_for(Question there)
{
    const timespec step = {0, step_ms * 1000000L};
    for (int waited = 0; !there(); waited += step_ms) {
        if (waited >= patience_ms || nanosleep(&step, nullptr) != 0) {
            return false;
        }
    }
    return true;
}

int run(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *)
{
    return 0;
}

int serve(ubus_context *bus)
{
    static const ubus_method methods[] = {{"run", run, 0, 0, nullptr, 0}};
    static ubus_object_type type = {"ombrine.run", 0, methods, 1};
    static ubus_object object = {};
    object.name = "ombrine.run";
    object.type = &type;
    object.methods = methods;
    object.n_methods = 1;
    if (ubus_add_object(bus, &object) != 0) {
        return 1;
    }
    ubus_add_uloop(bus);
    uloop_run();
    return 0;
}

void add_field(blob_buf *message, char *field)
{
    char *mark = strpbrk(field, "=#+");
    if (mark == nullptr) {
        return;
    }
    const char kind = *mark;
    *mark++ = '\0';
    if (kind == '=') {
        blobmsg_add_string(message, field, mark);
    } else if (kind == '#') {
        blobmsg_add_u32(message, field, static_cast<uint32_t>(strtoul(mark, nullptr, 10)));
    } else {
        void *array = blobmsg_open_array(message, field);
        blobmsg_add_string(message, nullptr, mark);
        blobmsg_close_array(message, array);
    }
}

void print_bytes(ubus_request *, int, blob_attr *answer)
{
    const auto *bytes = static_cast<const unsigned char *>(blob_data(answer));
    for (size_t i = 0; i < blob_len(answer); ++i) {
        printf("%02x", bytes[i]);
    }
}

int call(ubus_context *bus, const char *object, const char *method, char **fields)
{
    uint32_t id = 0;
    if (!wait_for([&] { return ubus_lookup_id(bus, object, &id) == 0; })) {
        fprintf(stderr, "small-peer: nobody offers %s\n", object);
        return 1;
    }
    blob_buf message = {};
    blob_buf_init(&message, 0);
    for (; *fields != nullptr; ++fields) {
        add_field(&message, *fields);
    }
    const int status = ubus_invoke(bus, id, method, message.head, print_bytes, nullptr, patience_ms);
    printf(" %d\n", status);
    blob_buf_free(&message);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    ubus_context *bus = nullptr;
    if (!wait_for([&] { return (bus = ubus_connect(nullptr)) != nullptr; })) {
        fprintf(stderr, "small-peer: no broker answers\n");
        return 1;
    }
    if (argc == 2 && strcmp(argv[1], "serve") == 0) {
        return serve(bus);
    }
    return argc >= 4 && strcmp(argv[1], "call") == 0 ? call(bus, argv[2], argv[3], argv + 4) : 2;
}
