#include "bus_client.h"

#include "process.h"

#include <cstdlib>

namespace lab_test {

BusClient::BusClient(const std::string &socket)
{
    eventually([&] {
        context = ubus_connect(socket.c_str());
        return context != nullptr;
    });
}

BusClient::~BusClient()
{
    if (context) {
        ubus_free(context);
    }
    uloop_done();
}

Answer BusClient::call(const std::string &object, const std::string &method, const std::string &arguments)
{
    if (!context) {
        return {UBUS_STATUS_CONNECTION_FAILED, ""};
    }
    uint32_t id = 0;
    const int lookup = ubus_lookup_id(context, object.c_str(), &id);
    if (lookup != 0 || id == 0) {
        return {lookup ? lookup : static_cast<int>(UBUS_STATUS_NOT_FOUND), ""};
    }
    blob_buf buffer{};
    blob_buf_init(&buffer, 0);
    Answer answer{UBUS_STATUS_INVALID_ARGUMENT, ""};
    if (blobmsg_add_json_from_string(&buffer, arguments.c_str())) {
        const auto take = [](ubus_request *request, int, blob_attr *message) {
            char *text = blobmsg_format_json(message, true);
            static_cast<Answer *>(request->priv)->json = text ? text : "";
            free(text);
        };
        answer.status = ubus_invoke(context, id, method.c_str(), buffer.head, take, &answer, deadline_ms);
    }
    blob_buf_free(&buffer);
    return answer;
}

} // namespace lab_test
