// Drives the atom engine's search and edits on arbitrary bytes. The first
// bytes of the input choose the operations; the rest is the file. Every
// operation must end, stay in bounds, never crash and never grow the file by
// more than the bytes it was given; the only exceptions allowed out of the
// engine are the file handle's own.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "MemoryFile.h"
#include "QTDataEditor.h"
#include "foundation/Bytes.h"
#include "foundation/FourCC.h"
#include "foundation/Log.h"

using namespace quillora;

namespace {

constexpr std::size_t kControlBytes = 24;

const std::uint32_t kTypes[] = {atom::moov, atom::trak, atom::mdia, atom::minf, atom::stbl, atom::stco,
                                atom::udta, atom::meta, atom::free, atom::mdat, 0};

struct Controls {
    const std::uint8_t* bytes;
    std::size_t next = 0;
    std::uint8_t byte() { return bytes[next++ % kControlBytes]; }
    std::int32_t offset()
    {
        std::uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v = (v << 8) | byte();
        // Mostly small offsets inside the file, now and then anything.
        return (v & 0x80000000u) ? static_cast<std::int32_t>(v) : static_cast<std::int32_t>(v % 4096);
    }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    setLogSink([](std::string_view) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < kControlBytes) return 0;
    const std::string path = fuzz::memoryFileWith(data + kControlBytes, size - kControlBytes);
    Controls controls{data};
    auto file = std::make_shared<FileHandle>(path, FileHandle::Mode::Updating);
    file->setMoveBufferSize(1 + controls.byte() % 64);
    QTDataEditor editor;
    editor.setSourceFileHandle(file);
    editor.setAtomDebugging(controls.byte() & 1);

    for (int step = 0; step < 4; ++step) {
        const std::uint32_t type = kTypes[controls.byte() % std::size(kTypes)];
        const Bytes payload(controls.byte() % 40, 0x5A);
        const std::int64_t lengthBefore = file->length();
        switch (controls.byte() % 8) {
        case 0:
            editor.findAtomOfType(type, controls.offset(), 1 + controls.byte() % 4, *file);
            break;
        case 1:
            editor.appendData(payload, controls.offset(), *file);
            break;
        case 2: {
            std::int32_t child = 0;
            editor.appendChildAtom(editor.createAtomOfType(type, payload), controls.offset(), *file, child);
            break;
        }
        case 3:
            editor.removeAtomAtOffset(controls.offset(), *file);
            break;
        case 4:
            editor.updateSTCOAtomsInFile(*file, controls.offset(), controls.byte(), controls.byte() & 1);
            break;
        case 5:
            editor.updateParentSize(controls.byte(), controls.offset(), *file, controls.byte() & 1);
            break;
        case 6:
            editor.cleanFreeAtoms();
            break;
        default:
            editor.isLastAtomInFile(type, 1 + controls.byte() % 3);
            break;
        }
        // An append adds the payload, or the payload as an atom, and nothing more.
        if (file->length() > lengthBefore + static_cast<std::int64_t>(payload.size()) + 8) std::abort();
    }
    return 0;
}
