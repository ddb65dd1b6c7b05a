// Named notifications, posted synchronously on the posting thread to the
// observers registered for that name (and, when they asked, that object).
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "foundation/Value.h"

namespace quillora {

struct Notification {
    std::string name;
    const void* object = nullptr;  // identity only, never dereferenced
    Value userInfo;
};

class NotificationCenter {
public:
    using Observer = std::function<void(const Notification&)>;
    using Token = std::uint64_t;

    static NotificationCenter& defaultCenter();

    // object nullptr observes the name from every sender.
    Token addObserver(std::string name, const void* object, Observer observer);
    void removeObserver(Token token);
    void post(const Notification& notification);

private:
    struct Registration {
        Token token;
        std::string name;
        const void* object;
        Observer observer;
    };
    std::mutex mutex_;
    std::vector<Registration> registrations_;
    Token nextToken_ = 1;
};

// Posted by FileHandle::waitForDataInBackgroundAndNotify with the handle as object.
inline constexpr const char* kFileHandleDataAvailableNotification = "FileHandleDataAvailableNotification";

}  // namespace quillora
