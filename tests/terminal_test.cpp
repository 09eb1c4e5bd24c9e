// Passwords that are typed on a terminal.
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>
#include <utilsdll.h>

#include <csignal>
#include <thread>

#include "tests/support/machine.h"

namespace {

// A terminal of the test's own: the far end of what programs have as their input.
class Terminal {
  public:
    Terminal() : end_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        if (grantpt(end_) != 0 || unlockpt(end_) != 0) ADD_FAILURE() << "no terminal";
        near_ = open(Name().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() {
        close(near_);
        close(end_);
    }

    std::string Name() const { return ptsname(end_); }
    bool ShowsTyping() const {
        termios settings{};
        return tcgetattr(near_, &settings) == 0 && (settings.c_lflag & ECHO) != 0;
    }
    void Type(const std::string& text) const {
        EXPECT_EQ(write(end_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    // Everything that was shown up to now.
    std::string Screen() const {
        std::string shown(1000, '\0');
        fcntl(end_, F_SETFL, O_NONBLOCK);
        const ssize_t got = read(end_, shown.data(), shown.size());
        shown.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        return shown;
    }

  private:
    const int end_;
    int near_ = -1;
};

class TerminalTest : public MachineTest {
  protected:
    // A program that waits for a password.
    BackgroundProcess StartAsking() {
        ProcessOptions options;
        options.input = terminal_.Name();
        BackgroundProcess program("snclient", {"set-lock-password", "-"}, options);
        for (int i = 0; i < 1000 && terminal_.ShowsTyping(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_FALSE(terminal_.ShowsTyping());
        return program;
    }

    Terminal terminal_;
};

TEST_F(TerminalTest, DoesNotShowAPassword) {
    BackgroundProcess program = StartAsking();
    // One that were stopped now would leave the terminal as it is.
    program.SendSignal(SIGTSTP);
    terminal_.Type("geh\xC3\xB6rt\n");
    const ProcessResult result = program.Wait();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "Password: \n");
    EXPECT_TRUE(cfg_sentrelmanager_cmp_pwd(TEXT("gehört")));
    EXPECT_EQ(terminal_.Screen(), "");
    EXPECT_TRUE(terminal_.ShowsTyping());
}

TEST_F(TerminalTest, ShowsTypingAgainWhateverEndsTheProgram) {
    for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGTERM}) {
        BackgroundProcess program = StartAsking();
        program.SendSignal(signal);
        EXPECT_EQ(program.Wait().signal, signal);
        EXPECT_TRUE(terminal_.ShowsTyping()) << signal;
    }
}

}  // namespace
