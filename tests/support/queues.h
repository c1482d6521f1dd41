#pragma once
// Raw System V queue access for tests: post exactly the bytes a peer would send, take
// what arrived, see how many messages wait. Nothing blocks unless a wait is asked for.
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace queues {

struct Message {
    long type;
    std::string text;  // the bytes as they arrived, length included
};

// Sends `text` (its exact bytes) as one message; false when the queue refused it.
bool post(int key, long type, std::string_view text);

// Takes the first message of `type` (0: any type), waiting up to `wait` for one.
std::optional<Message> take(int key, long type = 0,
                            std::chrono::milliseconds wait = std::chrono::milliseconds(0));

// Removes every waiting message of every type from each of the agent's four queues
// (player, bridge request and reply, notifications), so that a test starts with nothing
// left over from the one before.
void drain_all();

// The number of messages waiting.
int count(int key);

// A text up to its first NUL (the whole text when it holds none).
inline std::string c_text(const std::string& text) { return text.c_str(); }

}  // namespace queues
