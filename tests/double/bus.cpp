// The bus and configuration helpers of the platform library.

#include "platform/bus.h"

#include "blob.h"
#include "call.h"
#include "message.h"
#include "platform/config.h"
#include "script.h"

#include <algorithm>
#include <uci.h>

using namespace recorder;

int ubuslib_connect_init(void)
{
    return Call("ubuslib_connect_init").act([] { return 0; });
}

int ubuslib_task_status_wait(const char *object, int timeout)
{
    return Call("ubuslib_task_status_wait").text(object).number(timeout).act([] { return 0; });
}

int ubuslib_invoke_init(int flag, struct ubus_object **objects, int count)
{
    std::string names = "[";
    for (int i = 0; i < count; i++) {
        names += i == 0 ? "" : " ";
        names += plain(objects[i]->name);
    }
    return Call("ubuslib_invoke_init").number(flag).raw(names + "]").number(count).act([&] {
        scenario.objects.assign(objects, objects + count);
        return 0;
    });
}

int ubuslib_invoke_exit(int flag, struct ubus_object ** /*objects*/, int count)
{
    return Call("ubuslib_invoke_exit").number(flag).number(count).act([] { return 0; });
}

int ubuslib_invoke_call(const char *object, const char *method, struct blob_buf *msg,
                        ubus_data_handler_t /*reply*/, void * /*priv*/)
{
    return Call("ubuslib_invoke_call").text(object).text(method).raw(message_text(msg->head)).act([] {
        return 0;
    });
}

int ubuslib_bmsg_strlist_get(struct blob_attr *array, char **out, int capacity)
{
    return Call("ubuslib_bmsg_strlist_get").raw(array == nullptr ? "null" : "list").number(capacity).act([&] {
        return doubles::list_texts(array, out, capacity);
    });
}

int ucilib_foreach_section(const char *package, const char *type, ucilib_section_cb cb, void *arg)
{
    const void *site = __builtin_return_address(0);
    const std::string name = plain(package);
    Call call("ucilib_foreach_section", Call::Kind::action, site);
    call.text(package).text(type);
    const std::optional<long> wanted = call.demanded();
    if (wanted && *wanted != 0) {
        return call.done(*wanted);
    }
    if (std::find(scenario.packages.begin(), scenario.packages.end(), name) == scenario.packages.end()) {
        return call.done(-1);
    }
    trace_line("ucilib_foreach_section(" + quote(package) + ", " + quote(type) + ") {", site);
    int result = 0;
    for (UciSection &section : scenario.sections) {
        if (section.package != name || section.type != plain(type)) {
            continue;
        }
        uci_context context{};
        uci_section record{};
        record.e.type = UCI_TYPE_SECTION;
        record.e.name = section.name.data();
        record.type = section.type.data();
        // The platform's own look-up finds the options through the record's address.
        record.options.next = reinterpret_cast<uci_list *>(&section);
        result = cb(&context, &record, arg);
        if (result != 0) {
            break;
        }
    }
    trace_line("} = " + std::to_string(result));
    return result;
}

const char *ucilib_lookup_option_string(struct uci_context * /*ctx*/, struct uci_section *s,
                                        const char *option, const char *def)
{
    const auto &section = *reinterpret_cast<const UciSection *>(s->options.next);
    const char *value = def;
    for (const UciOption &known : section.options) {
        if (known.name == plain(option)) {
            value = known.value.c_str();
        }
    }
    if (scenario.show_options) {
        Call("ucilib_lookup_option_string", Call::Kind::saying)
            .text(s->e.name)
            .text(option)
            .raw(quote(value))
            .say();
    }
    return value;
}
