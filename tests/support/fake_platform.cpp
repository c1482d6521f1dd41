#include "support/fake_platform.h"

#include <chrono>
#include <cstdlib>
#include <unistd.h>

FakePlatform::FakePlatform(std::time_t start) : clock_(start), owner_(std::this_thread::get_id())
{
    seam::install(this);
}

FakePlatform::~FakePlatform() { seam::install(nullptr); }

int FakePlatform::system(const char* command)
{
    {
        std::lock_guard<std::mutex> lock(mu_);
        commands_.emplace_back(command);
    }
    return for_real_ ? std::system(command) : 0;
}

void FakePlatform::sleep(unsigned seconds)
{
    if (std::this_thread::get_id() == owner_) {
        std::lock_guard<std::mutex> lock(mu_);
        sleeps_.push_back(seconds);
        clock_ += seconds;
        return;
    }
    if (background_) {
        clock_ += seconds;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return;
    }
    for (;;) pause();
}

std::time_t FakePlatform::now() { return clock_; }

std::vector<std::string> FakePlatform::commands() const
{
    std::lock_guard<std::mutex> lock(mu_);
    return commands_;
}

std::vector<unsigned> FakePlatform::sleeps() const
{
    std::lock_guard<std::mutex> lock(mu_);
    return sleeps_;
}

void FakePlatform::clear()
{
    std::lock_guard<std::mutex> lock(mu_);
    commands_.clear();
    sleeps_.clear();
}
