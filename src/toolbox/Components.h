// Components as the movie toolbox finds and opens them: a registry of the
// movie exporters this system has, each described by type, subtype,
// manufacturer and flags and named. A component is named by a non-zero
// 32-bit reference; an open component is an instance of its exporter.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "toolbox/Handles.h"

namespace quillora::toolbox {

class MovieExporter;

using Component = std::uint32_t;  // 0: none
using ComponentInstance = std::shared_ptr<MovieExporter>;
using ComponentResult = std::int32_t;

inline constexpr std::uint32_t MovieExportType = 0x73706974;     // 'spit'
inline constexpr std::uint32_t kAppleManufacturer = 0x6170706C;  // 'appl'
// Flags of a movie exporter: it writes files, and has settings a user may change.
inline constexpr std::uint32_t canMovieExportFiles = 1 << 4;
inline constexpr std::uint32_t hasMovieExportUserInterface = 1 << 2;

inline constexpr OSErr badComponentType = -2005;
inline constexpr OSErr invalidComponentID = -3000;
inline constexpr ComponentResult badComponentInstance = static_cast<ComponentResult>(0x80008001);

// What a search asks for: a zero type, subtype or manufacturer matches any,
// and only the flags under the mask must be equal.
struct ComponentDescription {
    std::uint32_t componentType = 0;
    std::uint32_t componentSubType = 0;
    std::uint32_t componentManufacturer = 0;
    std::uint32_t componentFlags = 0;
    std::uint32_t componentFlagsMask = 0;
};

struct ComponentRegistration {
    ComponentDescription description;
    std::string name;
    std::function<ComponentInstance()> open;
};

// The exporters this system has, as they are registered at start.
std::vector<ComponentRegistration> builtInExporters();

// The next registered component after previous (0: the first) that matches.
Component FindNextComponent(Component previous, const ComponentDescription& looking);
OSErr OpenAComponent(Component component, ComponentInstance* instance);
// The instance, or nothing when the component is not registered.
ComponentInstance OpenComponent(Component component);
// Fills what is given: the description, and the name as a Pascal string
// (a length byte, then at most 255 bytes of UTF-8) in the name handle.
OSErr GetComponentInfo(Component component, ComponentDescription* description, const Handle& name, const Handle& info,
                       const Handle& icon);
OSErr CloseComponent(ComponentInstance& instance);

// Adds a component (it is found after those registered before it); answers its reference.
Component RegisterComponent(const ComponentRegistration& registration);
OSErr UnregisterComponent(Component component);

}  // namespace quillora::toolbox
