// Bus messages: built field by field, shown as text, and handed to the daemon's own objects.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct blob_attr;
struct blob_buf;

namespace seam {

// Texts by the names of their fields, in the order in which a message holds them.
using Fields = std::initializer_list<std::pair<const char *, const char *>>;

// A message under construction. Copies share the message.
class Message {
public:
    Message();
    Message(const Fields &texts);
    Message &text(const char *name, std::string_view value);
    Message &number(const char *name, uint32_t value);
    Message &texts(const char *name, const std::vector<std::string> &values);
    // A field of any type with these bytes, well formed or not.
    Message &field(const char *name, int type, std::string_view bytes);
    // What follows is inside an array or table, until it is closed.
    Message &open(const char *name, bool array);
    Message &close();
    blob_attr *head() const;

private:
    std::shared_ptr<blob_buf> buf_;
    std::vector<void *> open_;
};

// A message as it stands in the trace: JSON, but names are shown wherever there are any, in arrays too, and
// other types than table, array, string and int32 carry theirs ("5:int64"). A text without its terminator
// says so.
std::string message_text(blob_attr *message);

// The first texts of a list, as many as out has room for; they stay the message's. 0, or -1 for no list and
// for one that holds anything but texts.
int list_texts(blob_attr *list, char **out, int capacity);

// Calls a method of a registered object as the bus does, and gives its status; nothing where there is no such
// method. The message lies in memory of its own exact size, which is spoilt afterwards: a handler may keep
// none of it.
std::optional<int> call_method(const std::string &object, const std::string &method,
                               const Message &message = {});

// The same with a message as its bytes, with their head.
std::optional<int> call_method_raw(const std::string &object, const std::string &method,
                                   std::string_view message);

// True for the context and request of the call that is running.
bool is_current_request(const void *context, const void *request);

} // namespace seam
