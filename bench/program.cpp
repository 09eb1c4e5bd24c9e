#include "bench/program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& arguments) {
    const std::string path = PROGRAM_FOLDER "/" + program;
    std::vector<char*> words = {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
        words.push_back(const_cast<char*>(argument.c_str()));
    words.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const bool started =
        posix_spawn(&child, path.c_str(), &files, nullptr, words.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&files);

    int status = 1;
    rusage use{};
    if (!started || wait4(child, &status, 0, &use) != child) return {false, 0};
    return {WIFEXITED(status) && WEXITSTATUS(status) == 0,
            static_cast<double>(use.ru_maxrss) * 1024};
}

ProgramRun RunTool(const std::vector<std::string>& arguments) {
    return RunProgram("SNConfig", arguments);
}
