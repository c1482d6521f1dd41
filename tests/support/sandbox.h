#pragma once
// What tests share about the sandbox they run in: the stand-ins' call log, partitions
// made writable without going through the logged stand-in, small file helpers, and
// waiting for a condition.
#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace sandbox {

// Lines of the stand-in log ("mount -o ...", "reboot"), oldest first.
std::vector<std::string> calls();
void clear_calls();

// Remounts /mnt/hdN directly (not through the logged `mount` stand-in).
void set_writable(int partition, bool writable);
bool is_writable(const std::string& dir);

void write_file(const std::string& path, const std::string& content);
std::string read_file(const std::string& path);  // empty when it cannot be read
bool exists(const std::string& path);

// Polls `done` until it holds or `timeout` passes; true when it held.
bool wait_until(const std::function<bool()>& done,
                std::chrono::milliseconds timeout = std::chrono::seconds(10));

}  // namespace sandbox
