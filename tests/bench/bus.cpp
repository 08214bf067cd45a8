#include "bus.h"

#include "pairs.h"

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr int call_limit = 30'000; // milliseconds
constexpr int find_attempts = 200;
constexpr useconds_t find_pause = 50'000;

std::vector<char> ready_answer;

int answer_ready_made(ubus_context *context, ubus_object *, ubus_request_data *request, const char *,
                      blob_attr *)
{
    if (!ready_answer.empty()) {
        ubus_send_reply(context, request, reinterpret_cast<blob_attr *>(ready_answer.data()));
    }
    return UBUS_STATUS_OK;
}

[[noreturn]] void serve(const char *name)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    ubus_method method = {};
    method.name = "call";
    method.handler = answer_ready_made;
    ubus_object_type type = {};
    type.name = name;
    type.methods = &method;
    type.n_methods = 1;
    ubus_object object = {};
    object.name = name;
    object.type = &type;
    object.methods = &method;
    object.n_methods = 1;
    uloop_done(); // the loop of the process that this one was copied from
    uloop_init();
    ubus_context *context = ubus_connect(nullptr);
    if (!context || ubus_add_object(context, &object) != 0) {
        _exit(1);
    }
    ubus_add_uloop(context);
    uloop_run();
    _exit(0);
}

void keep_answer(ubus_request *request, int, blob_attr *answer)
{
    auto *bytes = static_cast<std::vector<char> *>(request->priv);
    if (bytes && answer) {
        const auto *start = reinterpret_cast<const char *>(answer);
        bytes->assign(start, start + blob_pad_len(answer));
    }
}

} // namespace

message::message(const std::string &json)
{
    blob_buf_init(&buffer_, 0);
    if (!blobmsg_add_json_from_string(&buffer_, json.c_str())) {
        give_up("no message: " + json);
    }
}

client::client() : context_(ubus_connect(nullptr))
{
    if (!context_) {
        give_up("no bus here");
    }
}

uint32_t client::find(const std::string &object)
{
    uint32_t id = 0;
    for (int i = 0; i < find_attempts; i++) {
        if (ubus_lookup_id(context_, object.c_str(), &id) == 0) {
            return id;
        }
        usleep(find_pause);
    }
    give_up("nobody serves " + object);
}

int client::call(uint32_t object, const char *method, blob_attr *arguments, std::vector<char> *answer)
{
    return ubus_invoke(context_, object, method, arguments, keep_answer, answer, call_limit);
}

void client::must(uint32_t object, const char *method, blob_attr *arguments)
{
    if (const int status = call(object, method, arguments)) {
        give_up(std::string(method) + " answered " + std::to_string(status));
    }
}

void client::calls_at_once(uint32_t object, const char *method, blob_attr *arguments, int count, int window)
{
    std::vector<ubus_request> requests(static_cast<size_t>(window));
    for (int done = 0; done < count; done += window) {
        for (ubus_request &request : requests) {
            ubus_invoke_async(context_, object, method, arguments, &request);
            ubus_complete_request_async(context_, &request);
        }
        for (ubus_request &request : requests) {
            if (ubus_complete_request(context_, &request, call_limit) != 0) {
                give_up("a call on its way was lost");
            }
        }
    }
}

limit_object::limit_object(const char *name, std::vector<char> answer) : child_(fork())
{
    if (child_ == 0) {
        ready_answer = std::move(answer);
        serve(name);
    }
}

limit_object::~limit_object()
{
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
}

} // namespace bench
