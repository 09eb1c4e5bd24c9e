#include "app/run_driver.h"

extern "C" int wmain(int argc, WCHAR** argv) {
    return RunTool(argc, argv);
}
