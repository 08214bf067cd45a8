// Addressing protocols: how an interface gets its address, started, stopped, paused and resumed.
//
// Client processes are instances of the platform's supervisor, addressed by a service name and the interface
// name; the daemon forks nothing. An entry's proto changes only when a start succeeds (static: always).
#pragma once

#include "netintf/registry.h"

#include <stddef.h>
#include <stdint.h>

// "static", "dhcp", "pppoe" to the enumeration and back. 0 or rv_proto; an unknown text leaves *proto alone.
int netintf_proto_strtoenum(const char *text, netintf_proto *proto);
int netintf_proto_enumtostr(netintf_proto proto, char *text, size_t size);

// A static address; each text may be null. The priority becomes the entry's only when a gateway is set.
// 0 or the failing platform call's result.
int netintf_proto_config_static(netintf_entry *entry, const char *ipaddr, const char *netmask,
                                const char *gateway, int priority);
// The same for a LAN: no gateway.
int netintf_lan_addr_set(netintf_entry *entry, const char *ipaddr, const char *netmask);
// Starts the DHCP client; the result of the supervisor call.
int netintf_proto_config_dhcp(netintf_entry *entry);
// Starts the PPPoE link start_count times (callers pass 1); each text may be null. 0 or the failing start's
// result, which is reported.
int netintf_proto_config_pppoe(netintf_entry *entry, uint32_t start_count, const char *service,
                               const char *user, const char *password);

// Lowers and raises an interface's device.
int netintf_intf_down(const netintf_entry *entry);
int netintf_intf_up(const netintf_entry *entry);

// A port lost or regained its link: pauses or resumes every interface on it. 0, rv_device, rv_proto, or the
// board lookup's error.
int netintf_proto_intf_down(netintf_entry *head);
int netintf_proto_intf_up(netintf_entry *head);

int netintf_proto_static_stop(netintf_entry *entry); // 0 or rv_fail
int netintf_proto_dhcp_stop(netintf_entry *entry);   // 0 or rv_fail, the client then left running
int netintf_proto_pppoe_stop(netintf_entry *entry);  // 0
// Stops the entry's protocol and deletes its WAN information row. Returns 0.
int netintf_proto_stop(netintf_entry *entry);

// Has an interface's DHCP client renew or release its lease. 0, or rv_proto (reported) when there is no
// client.
int netintf_dhcp_client_renew(const netintf_entry *entry);
int netintf_dhcp_client_release(const netintf_entry *entry);

// The text for an address that is not set.
inline constexpr char address_any[] = "0.0.0.0";

bool netintf_address_is_any(const char *text);

// Writes an address in network byte order as dotted quad.
constexpr size_t address_text_size = 16;
void netintf_address_text(uint32_t address, char (&text)[address_text_size]);
