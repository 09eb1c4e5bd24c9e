// main() of a program that has a wmain().
#include <sys/stat.h>

#include <csignal>

#include "wide_arguments.h"

extern "C" int wmain(int argc, WCHAR** argv);

int main(int argc, char** argv) {
    // A reader that goes away is an error code, not the end of the program.
    std::signal(SIGPIPE, SIG_IGN);
    // What a program makes belongs to its account alone, as in a user's own folders on Windows,
    // unless it says otherwise.
    umask(S_IRWXG | S_IRWXO);
    return RunWithWideArguments(argc, argv, wmain);
}
