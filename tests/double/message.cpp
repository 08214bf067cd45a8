#include "message.h"

#include "blob.h"
#include "trace.h"

#include <cstdlib>

namespace recorder {
Message::Message()
{
    blob_buf_init(&buf_, 0);
}

Message::~Message()
{
    blob_buf_free(&buf_);
}

void Message::add(const std::string &word, uint32_t type, const std::string &name, const std::string &data)
{
    if (word == "field") {
        blobmsg_add_field(&buf_, static_cast<int>(type), name.c_str(), data.data(),
                          static_cast<unsigned>(data.size()));
    } else if (word == "open" && depth_ < 16) {
        open_[depth_++] = blobmsg_open_nested(&buf_, name.c_str(), type == BLOBMSG_TYPE_ARRAY);
    } else if (word == "close" && depth_ > 0) {
        blob_nest_end(&buf_, open_[--depth_]);
    } else {
        abort();
    }
}

std::string message_text(blob_attr *message)
{
    return doubles::message_text(message, quote);
}

} // namespace recorder
