// Traffic statistics: every interface's byte counters, sampled from the kernel every three seconds.
#pragma once

struct uloop_timeout;

constexpr int statist_interval = 3000; // milliseconds

// Arms the sampling timer; from then on it re-arms itself.
void netintf_statist_start();

// One sampling run. A kernel table that cannot be read skips the sample.
void netintf_statist_timer(struct uloop_timeout *timeout);
