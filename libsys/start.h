// The start of a daemon over a router that runs already.
//
// A start takes away what it lays again a moment later, and what it takes away carries traffic meanwhile. So
// removals that are asked for between outlib_client_init() and the end of the first poll of the ports' links
// are put off: adding the same again calls them off, and what is left is done at that end, or when the
// process ends in order. A process that is killed before has removed nothing; the next one asks again.
//
//   policy rules        rule_late.h         stay until then, unless another rule is to stand in their place
//   rules of a chain    iptables_refill.h   each stays until one that is appended takes its place
//   row of a WAN        waninfo.cpp         keeps the addresses of a client as long as its device has them
//
// Questions are answered meanwhile as if the removals had been done.
#pragma once

namespace libsys {

// Where nothing can be arranged for the end of the process, nothing is put off.
void begin_start();
bool starting();
// Does what has been put off; every later removal is done at once.
void end_start();

} // namespace libsys
