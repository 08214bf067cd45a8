// The table of PPP peers that are logged in, in the router's statistics database.
//
// Each call opens the database, runs one statement and closes it again; other processes share the file.
// Values go into the statement as they come, between single quotes: callers pass plain names and addresses. A
// statement is cut at 1022 characters and run as cut.
#pragma once

// A login. username, dial_mac and dial_ip may be null. 0, or rv_database after a report.
int pppauth_db_insert(const char *username, const char *type, const char *ipaddr, const char *dial_mac,
                      const char *dial_ip);

// A logout: removes every row of the type, name and address; the MAC is ignored. 0, or rv_database after a
// report.
int pppauth_db_delete(const char *username, const char *type, const char *ipaddr, const char *dial_mac);
