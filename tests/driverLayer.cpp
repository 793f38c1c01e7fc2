// A C++17 program of another author on the board, who has names of his own: the driver layer's headers leave him these.
extern int ALL_PAGES, CHIP_ADDRESS, NO, RO, WO, RW;
namespace rights {}
namespace code {}

#include "commandCatalogue.h"
#include "max34460.h"
#include "pmDataFile.h"
#include "pmMutexLock.h"
#include "versionRecord.h"

static_assert(__cplusplus < 202002L && catalogue::find(Page::CODE)->code == Page::CODE);
