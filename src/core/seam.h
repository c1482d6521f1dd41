#pragma once
// The seam: the agent's three contacts with the world that a test must control.
//
//   seam::system(cmd)   run a shell command (cp, rm, mount, reboot, wget ...)
//   seam::sleep(s)      sleep whole seconds
//   seam::now()         the wall clock, seconds since the epoch
//
// Production forwards to libc. A test installs its own Platform to record commands,
// skip sleeps and set the clock. Everything else in the agent stays ordinary code.
#include <ctime>

namespace seam {

class Platform {
public:
    virtual int system(const char* command) = 0;
    virtual void sleep(unsigned seconds) = 0;
    virtual std::time_t now() = 0;

protected:
    ~Platform() = default;
};

int system(const char* command);
void sleep(unsigned seconds);
std::time_t now();

// Routes the three calls to `platform`; nullptr restores libc.
void install(Platform* platform);

}  // namespace seam
