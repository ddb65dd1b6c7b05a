#include "ComponentsCommand.h"

#include <fmt/format.h>

#include <ostream>

#include "ExitStatus.h"
#include "QTDataEditor.h"
#include "foundation/FourCC.h"

namespace quillora::app {

int runComponentsCommand(std::ostream& out)
{
    QTDataEditor editor;
    const Value components = editor.availableComponents();
    auto code = [](const Value& entry, const char* key) {
        return stringFromFourCC(static_cast<std::uint32_t>(entry.integerForKey(key).value_or(0)));
    };
    out << fmt::format("{:<6} {:<8} {:<13} {}\n", "type", "subtype", "manufacturer", "name");
    for (const auto& entry : *components.asArray()) {
        out << fmt::format("{:<6} {:<8} {:<13} {}\n", code(entry, "type"), code(entry, "subtype"),
                           code(entry, "manufacturer"), entry.stringForKey("name").value_or(""));
    }
    return kExitSuccess;
}

}  // namespace quillora::app
