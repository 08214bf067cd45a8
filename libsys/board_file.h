// The board file.
//
// board_file   Owns the parsed file for its scope. load() and the checks below report what is wrong with it
// through outlib_error as "file: key: reason", because only here file, key and reason are known together; the
// result is then an errno value for the caller to fail with.
#pragma once

#include "internal.h"
#include "places.h"

#include <cstdint>
#include <json-c/json.h>

namespace libsys {

class board_file {
public:
    // 0 or an errno value. An absent file is reported like a broken one.
    int load();
    // The value at a path of member names joined by dots; null when there is none.
    json_object *find(const char *path) const;

private:
    owned<json_object, json_object_put> root_;
};

// One line about a key of the file; EINVAL to return.
[[gnu::format(printf, 2, 3)]] int board_error(const char *key, const char *reason, ...);

// A whole number within bounds; anything else is reported under the key and gives EINVAL.
int board_number(const char *key, json_object *value, int64_t least, int64_t most, int64_t &number);

// A member of an object; null when the object has none.
json_object *member(json_object *object, const char *name);

} // namespace libsys
