// The listening socket of the broker.
#pragma once

namespace broker {

// 0, or -1 with a message on standard error. The socket file appears with mode 0666. One that is there is
// taken over unless a broker answers on it.
int server_open(const char *path);
// Also removes the socket file, unless it has become another's.
void server_close();

} // namespace broker
