"""Bus calls as any program makes them."""

import json


def call(lab, name, method, /, **arguments):
    """(status, reply or None) of a method; the status as the method gave it."""
    result = lab.run("router", "ubus", "-S", "-t", 10 * lab.pace, "call", name, method, json.dumps(arguments), timeout=20)
    return result.status, json.loads(result.out) if result.out.strip() else None


def intf(lab, method, /, **arguments):
    return call(lab, "ivarode.intf", method, **arguments)


def route(lab, method, /, **arguments):
    return call(lab, "ivarode.route", method, **arguments)


def instances(lab, service):
    """Instance name -> its words and whether it runs, as the supervisor lists them."""
    listed = lab.run("router", "ubus", "call", "service", "list", json.dumps({"name": service}), check=True).json()
    return {name: (instance["command"], instance["running"])
            for name, instance in listed.get(service, {}).get("instances", {}).items()}
