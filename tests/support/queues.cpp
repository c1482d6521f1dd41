#include "support/queues.h"

#include <cstring>
#include <memory>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <thread>

#include "core/usb_xapp.h"

namespace queues {
namespace {

// Larger than any message the kernel lets through, so nothing is ever cut.
constexpr std::size_t kMaxText = 65536;

struct Raw {
    long type;
    char text[kMaxText];
};

int open(int key) { return msgget(key, IPC_CREAT | 0666); }

}  // namespace

bool post(int key, long type, std::string_view text)
{
    if (text.size() > kMaxText) return false;
    auto raw = std::make_unique<Raw>();
    raw->type = type;
    if (!text.empty()) std::memcpy(raw->text, text.data(), text.size());
    return msgsnd(open(key), raw.get(), text.size(), IPC_NOWAIT) == 0;
}

std::optional<Message> take(int key, long type, std::chrono::milliseconds wait)
{
    auto deadline = std::chrono::steady_clock::now() + wait;
    auto raw = std::make_unique<Raw>();
    for (;;) {
        ssize_t n = msgrcv(open(key), raw.get(), kMaxText, type, IPC_NOWAIT | MSG_NOERROR);
        if (n >= 0) return Message{raw->type, std::string(raw->text, static_cast<std::size_t>(n))};
        if (std::chrono::steady_clock::now() >= deadline) return std::nullopt;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

void drain_all()
{
    for (int key : {kPlayerQueueKey, kBridgeRequestKey, kBridgeReplyKey, kNotifyQueueKey})
        while (take(key)) {
        }
}

int count(int key)
{
    msqid_ds ds{};
    return msgctl(open(key), IPC_STAT, &ds) == 0 ? static_cast<int>(ds.msg_qnum) : -1;
}

}  // namespace queues
