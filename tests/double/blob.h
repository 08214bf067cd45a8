// Bus messages as the doubles of the platform show and read them.
#pragma once

#include <string>
#include <string_view>

struct blob_attr;

namespace doubles {

// A message as text: JSON, but names are shown wherever there are any, in arrays too, and other types than
// table, array, string and int32 carry theirs ("5:int64"). A text without its terminator says so.
std::string message_text(blob_attr *message, std::string (*quote)(std::string_view));

// The first texts of a list, as many as out has room for; they stay the message's. 0, or -1 for no list and
// for one that holds anything but texts.
int list_texts(blob_attr *list, char **out, int capacity);

} // namespace doubles
