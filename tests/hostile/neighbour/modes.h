// What a neighbour of ill will does on a cable.
//
// flood()             Frames as fast as the device takes them: "random" (of all types, tagged, cut short),
// "arp" (claims
//                     of everybody's addresses), "dhcp" (messages of clients and servers).
//
// lie_by_dhcp()       A DHCP server that tells one lie at each search of a client, in offer and
// acknowledgement, and the
//                     next one at the next search; broken offers come before it. A line of standard output
//                     for each: what it was, and whether the client has "asked" for it or "ignored" it.
//                     "done" after the last.
//
// garble_pppoe()      An access concentrator: among many broken answers to each search a sound one, and then
// a session of
//                     garbage that ends after a moment. A line for each session, "done" after the last of
//                     `sessions`.
//
// The last two end when nobody has searched for a minute, without their last line.
#pragma once

#include "wire.h"

namespace neighbour {

void flood(Wire &wire, Random &random, const std::string &kind, const Mac &router, uint32_t count);
void lie_by_dhcp(Wire &wire, Random &random);
void garble_pppoe(Wire &wire, Random &random, uint32_t sessions);

} // namespace neighbour
