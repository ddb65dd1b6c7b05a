#include "publish/WholeTags.h"

#include "foundation/FourCC.h"
#include "metadata/ItemAtoms.h"
#include "toolbox/AtomTree.h"

namespace quillora::publish {

void writeWholeTags(QTDataEditor& editor, FileHandle& file, const Value& tags)
{
    const toolbox::AtomTree tree = toolbox::readAtomTree(file);
    const auto meta = tree.find({atom::moov, atom::udta, atom::meta});
    const auto oldList = meta ? tree.childOfType(*meta, atom::ilst) : std::nullopt;
    if (!oldList) return;

    // The same items the plug-in wrote, software name included, but whole.
    Dictionary stamped;
    if (auto given = tags.asDictionary()) stamped = *given;
    stampSoftwareName(stamped);
    const Bytes list = editor.createAtomOfType(atom::ilst, itemAtoms(editor, stamped, ItemText::wholeUTF8));

    file.seekToFileOffset(oldList->offset);
    if (file.readDataOfLength(static_cast<std::size_t>(oldList->size)) == list) return;
    // Removing the old list first leaves meta's offset where it was.
    editor.removeAtomAtOffset(static_cast<std::int32_t>(oldList->offset), file);
    std::int32_t position = 0;
    editor.appendChildAtom(list, static_cast<std::int32_t>(meta->offset), file, position);
}

}  // namespace quillora::publish
