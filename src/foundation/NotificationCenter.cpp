#include "foundation/NotificationCenter.h"

#include <algorithm>

namespace quillora {

NotificationCenter& NotificationCenter::defaultCenter()
{
    static NotificationCenter center;
    return center;
}

NotificationCenter::Token NotificationCenter::addObserver(std::string name, const void* object, Observer observer)
{
    std::lock_guard lock(mutex_);
    Token token = nextToken_++;
    registrations_.push_back({token, std::move(name), object, std::move(observer)});
    return token;
}

void NotificationCenter::removeObserver(Token token)
{
    std::lock_guard lock(mutex_);
    std::erase_if(registrations_, [token](const Registration& r) { return r.token == token; });
}

void NotificationCenter::post(const Notification& notification)
{
    // Observers run outside the lock, so they may post or register in turn.
    std::vector<Observer> observers;
    {
        std::lock_guard lock(mutex_);
        for (const auto& r : registrations_) {
            if (r.name == notification.name && (r.object == nullptr || r.object == notification.object)) {
                observers.push_back(r.observer);
            }
        }
    }
    for (const auto& observer : observers) observer(notification);
}

}  // namespace quillora
