// The facts of the commands, drawn.
#pragma once

#include "json.h"
#include "screen.h"

namespace ctl {

void show_apply(const screen &on, json_object *facts);
void show_check(const screen &on, json_object *facts);
void show_confirm(const screen &on, json_object *facts);
void show_debug(const screen &on, json_object *facts);
void show_explain(const screen &on, json_object *facts);
void show_health(const screen &on, json_object *facts);
void show_metrics(const screen &on, json_object *facts);
void show_rollback(const screen &on, json_object *facts);
void show_status(const screen &on, json_object *facts);
void show_switch(const screen &on, json_object *facts);
void show_version(const screen &on, json_object *facts);

} // namespace ctl
