// A clock the program sets: linking fake_clock.cpp replaces gettimeofday,
// which then returns clock_now (whole seconds) and counts its calls.
#pragma once

#include <stdint.h>

extern uint32_t clock_now;
extern long clock_reads;
