#include "AtomsCommand.h"

#include <fmt/format.h>

#include "foundation/FileHandle.h"
#include "foundation/FourCC.h"
#include "toolbox/AtomTree.h"

namespace quillora::app {

int runAtomsCommand(const std::filesystem::path& path, std::ostream& out, std::ostream& err)
{
    toolbox::AtomTree tree;
    try {
        tree = toolbox::readAtomTree(path);
    } catch (const FileError& error) {
        err << "quillora: cannot read " << path.string() << ": " << error.code().message() << "\n";
        return 1;
    }
    if (tree.atoms.empty()) {
        err << "quillora: " << path.string() << " is not a movie file (no atoms could be read";
        if (!tree.problems.empty()) err << ": " << tree.problems.front();
        err << ")\n";
        return 1;
    }
    out << fmt::format("{:<24} {:>12} {:>12}\n", "atom", "offset", "size");
    for (const auto& node : tree.atoms) {
        // The items of a movie's own metadata are named by their key's index.
        const std::string type = node.type < 0x20000000 ? fmt::format("#{}", node.type) : stringFromFourCC(node.type);
        std::string name = std::string(static_cast<std::size_t>(node.depth) * 2, ' ') + type;
        out << fmt::format("{:<24} {:>12} {:>12}\n", name, node.offset, node.size);
    }
    for (const auto& problem : tree.problems) err << "quillora: warning: " << problem << "\n";
    return tree.problems.empty() ? 0 : 2;
}

}  // namespace quillora::app
