// A log statement by itself: bench/run counts its instructions while it is gated off.
#include "log.h"

int costly(int value);

void gatedLog(int value)
{
    LOG(DEBUG, "%d", costly(value));
}
