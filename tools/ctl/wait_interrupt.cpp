#include "tools/ctl/wait_interrupt.h"

#include <unistd.h>

#include <cstring>

#include "tools/ctl/terminal.h"

namespace koli::ctl {
namespace {

constexpr char kClearLine[] = "\r\033[K";
constexpr char kText[] =
    "koliindexctl: interrupted; the requests stay queued (koliindexctl status tells how far they are)\n";

volatile sig_atomic_t is_drawn = 0;

void Write(const char* text) {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, strlen(text));
}

/// The signal comes once more, for the default action: who has started the program learns what ended it.
void Interrupt(int signo) {
    if (is_drawn != 0) Write(kClearLine);
    Write(kText);
    signal(signo, SIG_DFL);
    raise(signo);
}

}  // namespace

WaitInterrupt::WaitInterrupt() {
    is_drawn = IsDrawable(STDERR_FILENO) ? 1 : 0;
    struct sigaction action {};
    action.sa_handler = Interrupt;
    sigaction(SIGINT, nullptr, &before_);
    if (before_.sa_handler != SIG_IGN) sigaction(SIGINT, &action, nullptr);
}

WaitInterrupt::~WaitInterrupt() {
    sigaction(SIGINT, &before_, nullptr);
}

}  // namespace koli::ctl
