// The gatherers of the commands: each fills a table of facts and gives an exit_status. docs/ivarodectl.md
// says which fields there are.
#pragma once

#include "commands.h"

namespace ctl {

int gather_apply(const words &given, json_object *facts);
int gather_check(const words &given, json_object *facts);
int gather_confirm(const words &given, json_object *facts);
int gather_debug(const words &given, json_object *facts);
int gather_explain(const words &given, json_object *facts);
int gather_guard(const words &given, json_object *facts);
int gather_health(const words &given, json_object *facts);
int gather_metrics(const words &given, json_object *facts);
int gather_rollback(const words &given, json_object *facts);
int gather_status(const words &given, json_object *facts);
int gather_switch(const words &given, json_object *facts);
int gather_version(const words &given, json_object *facts);

} // namespace ctl
