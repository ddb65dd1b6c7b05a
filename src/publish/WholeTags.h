// The item list rewritten with every tag whole in UTF-8: the plug-in keeps
// only as many bytes as a value has UTF-16 units, which cuts text beyond
// ASCII short ("Оптика" becomes "Опт") and leaves readers that check UTF-8
// without the tag at all.
#pragma once

#include "QTDataEditor.h"
#include "foundation/FileHandle.h"
#include "foundation/Value.h"

namespace quillora::publish {

// tags: the dictionary the plug-in was given. Replaces moov/udta/meta/ilst
// through the editor (sizes and chunk offsets follow); a list that is
// already whole is left untouched, and a file without one is not given one.
void writeWholeTags(QTDataEditor& editor, FileHandle& file, const Value& tags);

}  // namespace quillora::publish
