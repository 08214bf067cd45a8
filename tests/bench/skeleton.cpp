// Lays the firewall skeleton once, as one start of the daemon does, and ends.

#include "firewall/chains.h"

int main() { return netpre_init() == 0 ? 0 : 1; }
