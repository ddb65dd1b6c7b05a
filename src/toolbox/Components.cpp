#include "toolbox/Components.h"

#include <algorithm>
#include <mutex>

#include "toolbox/MovieExporter.h"

namespace quillora::toolbox {

namespace {

struct Registered {
    Component reference;
    ComponentRegistration registration;
};

// Exports run on worker threads: the registry is shared by all of them.
struct Registry {
    std::mutex lock;
    std::vector<Registered> components;
    Component lastReference = 0;

    Registry()
    {
        for (auto& registration : builtInExporters()) components.push_back({++lastReference, std::move(registration)});
    }

    const Registered* find(Component component) const
    {
        auto found = std::find_if(components.begin(), components.end(),
                                  [component](const Registered& entry) { return entry.reference == component; });
        return found == components.end() ? nullptr : &*found;
    }
};

Registry& registry()
{
    static Registry shared;
    return shared;
}

bool matches(const ComponentDescription& candidate, const ComponentDescription& looking)
{
    auto field = [](std::uint32_t value, std::uint32_t wanted) { return wanted == 0 || value == wanted; };
    return field(candidate.componentType, looking.componentType) &&
           field(candidate.componentSubType, looking.componentSubType) &&
           field(candidate.componentManufacturer, looking.componentManufacturer) &&
           (candidate.componentFlags & looking.componentFlagsMask) ==
               (looking.componentFlags & looking.componentFlagsMask);
}

}  // namespace

std::vector<ComponentRegistration> builtInExporters()
{
    return {handheldPlayerExporter(), movieExporter()};
}

Component FindNextComponent(Component previous, const ComponentDescription& looking)
{
    Registry& shared = registry();
    std::lock_guard guard(shared.lock);
    auto entry = shared.components.begin();
    if (previous != 0) {
        entry = std::find_if(entry, shared.components.end(),
                             [previous](const Registered& candidate) { return candidate.reference == previous; });
        if (entry == shared.components.end()) return 0;
        ++entry;
    }
    for (; entry != shared.components.end(); ++entry) {
        if (matches(entry->registration.description, looking)) return entry->reference;
    }
    return 0;
}

OSErr OpenAComponent(Component component, ComponentInstance* instance)
{
    if (!instance) return paramErr;
    *instance = OpenComponent(component);
    return *instance ? noErr : invalidComponentID;
}

ComponentInstance OpenComponent(Component component)
{
    std::function<ComponentInstance()> open;
    {
        Registry& shared = registry();
        std::lock_guard guard(shared.lock);
        const Registered* entry = shared.find(component);
        if (!entry) return nullptr;
        open = entry->registration.open;
    }
    return open();
}

OSErr GetComponentInfo(Component component, ComponentDescription* description, const Handle& name,
                       const Handle& /*info*/, const Handle& /*icon*/)
{
    Registry& shared = registry();
    std::lock_guard guard(shared.lock);
    const Registered* entry = shared.find(component);
    if (!entry) return invalidComponentID;
    if (description) *description = entry->registration.description;
    if (name) {
        const std::string& text = entry->registration.name;
        const std::size_t length = std::min<std::size_t>(text.size(), 255);
        name->bytes.assign(1, static_cast<std::uint8_t>(length));
        name->bytes.insert(name->bytes.end(), text.begin(), text.begin() + static_cast<std::ptrdiff_t>(length));
    }
    return noErr;
}

OSErr CloseComponent(ComponentInstance& instance)
{
    if (!instance) return static_cast<OSErr>(invalidComponentID);
    instance.reset();
    return noErr;
}

Component RegisterComponent(const ComponentRegistration& registration)
{
    Registry& shared = registry();
    std::lock_guard guard(shared.lock);
    shared.components.push_back({++shared.lastReference, registration});
    return shared.lastReference;
}

OSErr UnregisterComponent(Component component)
{
    Registry& shared = registry();
    std::lock_guard guard(shared.lock);
    const auto removed =
        std::erase_if(shared.components, [component](const Registered& entry) { return entry.reference == component; });
    return removed ? noErr : invalidComponentID;
}

}  // namespace quillora::toolbox
