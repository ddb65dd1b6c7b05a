// The file layer's one seam for moving bytes: insert and remove at an offset,
// streamed through a fixed buffer of any size.
#include <gtest/gtest.h>

#include <random>

#include "TestSupport.h"
#include "foundation/FileHandle.h"
#include "foundation/Progress.h"

using namespace quillora;

// Random inserts, removals, overwrites and cuts against a plain vector, with
// every read checked before the file is written; the file on disk changes
// only when the edits are written (at close, or when the bytes held in memory
// pass the limit), and then equals the vector. Below the limit insertions stay
// in memory, past it they go to a side file.
TEST(FileHandle, EditsMatchAPlainVectorForEveryBufferSizeAndLimit)
{
    test::TemporaryFolder folder;
    auto path = folder.path() / "data";
    std::mt19937 random(42);
    Bytes model(1000);
    for (auto& b : model) b = static_cast<std::uint8_t>(random());
    test::writeFile(path, model);

    struct Case {
        std::size_t buffer;
        std::size_t pendingLimit;
        bool writeFirst;  // a write across the end before any edit goes straight to the file
    };
    for (Case c : {Case{1, 2u << 20, false}, Case{3, 2u << 20, true}, Case{64, 100, false}, Case{4096, 0, true}}) {
        FileHandle file(path, FileHandle::Mode::Updating);
        file.setMoveBufferSize(c.buffer);
        file.setPendingLimit(c.pendingLimit);
        if (c.writeFirst) {
            const Bytes across(30, 9);
            file.seekToFileOffset(std::ssize(model) - 10);
            file.writeData(across);
            model.resize(model.size() + 20);
            std::copy(across.begin(), across.end(), model.end() - 30);
        }
        const Bytes beforeEdits = model;
        // More than one block of memory, so later insertions go to another.
        const Bytes large(1300000, 7);
        file.insertBytes(10, large);
        model.insert(model.begin() + 10, large.begin(), large.end());
        for (int round = 0; round < 60; ++round) {
            const auto size = static_cast<std::int64_t>(model.size());
            const auto offset = static_cast<std::int64_t>(random() % (model.size() + 3));
            const auto count = static_cast<std::int64_t>(random() % 60);
            Bytes data(random() % 50, static_cast<std::uint8_t>(round));
            if (offset > size) model.resize(static_cast<std::size_t>(offset));
            switch (random() % 4) {
            case 0:
                file.insertBytes(offset, data);
                model.insert(model.begin() + offset, data.begin(), data.end());
                break;
            case 1:
                file.removeBytes(offset, count);
                model.erase(model.begin() + offset,
                            model.begin() + std::min<std::int64_t>(offset + count, std::max(size, offset)));
                break;
            case 2:
                file.seekToFileOffset(offset);
                file.writeData(data);
                if (offset + std::ssize(data) > std::ssize(model)) model.resize(offset + data.size());
                std::copy(data.begin(), data.end(), model.begin() + offset);
                break;
            default:
                file.truncateFileAtOffset(offset);
                model.resize(static_cast<std::size_t>(offset));
            }
            ASSERT_EQ(file.length(), std::ssize(model)) << "buffer " << c.buffer << " round " << round;
            file.seekToFileOffset(0);
            ASSERT_EQ(file.readDataToEndOfFile(), model) << "buffer " << c.buffer << " round " << round;
        }
        if (c.pendingLimit > large.size()) {
            EXPECT_EQ(test::readFile(path), beforeEdits) << "written before closing";
        }
        file.closeFile();
        EXPECT_EQ(test::readFile(path), model) << "buffer " << c.buffer;
        // Large insertions past the limit went to a side file that leaves no trace.
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
    }
}

TEST(FileHandle, InsertPastTheEndFillsWithZerosAndReadsStopAtTheEnd)
{
    test::TemporaryFolder folder;
    auto path = folder.path() / "data";
    test::writeFile(path, Bytes{1, 2, 3});
    FileHandle file(path, FileHandle::Mode::Updating);
    file.insertBytes(5, Bytes{9});
    EXPECT_EQ(file.length(), 6);
    file.seekToFileOffset(4);
    EXPECT_EQ(file.readDataOfLength(10), (Bytes{0, 9}));
    EXPECT_EQ(file.readDataOfLength(10), Bytes{});
    file.seekToFileOffset(0);
    EXPECT_EQ(file.readDataToEndOfFile(), (Bytes{1, 2, 3, 0, 0, 9}));
    EXPECT_THROW(file.seekToFileOffset(-1), FileError);
    file.closeFile();
    EXPECT_THROW(file.readDataOfLength(1), FileError);
    EXPECT_THROW(FileHandle(folder.path() / "missing", FileHandle::Mode::Reading), FileError);
}

TEST(FileHandle, CopiesAndMovesReportTheBytesMovedUpToTheWhole)
{
    test::TemporaryFolder folder;
    const auto path = folder.path() / "data", copy = folder.path() / "copy";
    Bytes data(100);
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i);
    test::writeFile(path, data);
    std::vector<std::pair<std::int64_t, std::int64_t>> reports;
    const ProgressSink previous =
        setProgressSink([&](const ProgressReport& r) { reports.emplace_back(r.done, r.total); });
    using Reports = std::vector<std::pair<std::int64_t, std::int64_t>>;

    FileHandle::copyFile(path, copy, 40);
    EXPECT_EQ(test::readFile(copy), data);
    EXPECT_EQ(reports, (Reports{{40, 100}, {80, 100}, {100, 100}}));
    FileHandle file(copy, FileHandle::Mode::Updating);
    file.setMoveBufferSize(64);
    reports.clear();
    file.insertBytes(10, Bytes{1, 2});
    file.removeBytes(0, 30);  // the inserted bytes go too: 72 bytes move, once, when written out
    EXPECT_TRUE(reports.empty());
    file.closeFile();
    EXPECT_EQ(reports, (Reports{{64, 72}, {72, 72}}));
    EXPECT_EQ(test::readFile(copy), Bytes(data.begin() + 28, data.end()));
    setProgressSink(previous);
}

// A range of another file lands where writeData would put it: copied by the
// kernel into a file with nothing pending, and through the edits otherwise
// (on either side); a range past the source's end is an error.
TEST(FileHandle, CopiesARangeOfAnotherFileAsWritingItsBytesWould)
{
    test::TemporaryFolder folder;
    const auto sourcePath = folder.path() / "source", targetPath = folder.path() / "target";
    std::mt19937 random(7);
    Bytes source(300000);
    for (auto& b : source) b = static_cast<std::uint8_t>(random());
    test::writeFile(sourcePath, source);
    const Bytes range(source.begin() + 1000, source.begin() + 251000);

    for (bool pendingHere : {false, true}) {
        SCOPED_TRACE(pendingHere ? "edits pending in the target" : "nothing pending");
        test::writeFile(targetPath, Bytes{1, 2, 3, 4});
        FileHandle target(targetPath, FileHandle::Mode::Updating);
        target.setMoveBufferSize(65536);  // several blocks
        FileHandle from(sourcePath, FileHandle::Mode::Reading);
        Bytes expected{1, 2, 3, 4};
        if (pendingHere) {
            target.insertBytes(0, Bytes{9});
            expected.insert(expected.begin(), 9);
        }
        target.seekToFileOffset(2 + (pendingHere ? 1 : 0));
        target.writeDataFromFile(from, 1000, std::ssize(range));
        expected.resize(2 + (pendingHere ? 1 : 0));
        expected.insert(expected.end(), range.begin(), range.end());
        EXPECT_EQ(target.offsetInFile(), std::ssize(expected));
        target.closeFile();
        EXPECT_EQ(test::readFile(targetPath), expected);
    }

    // The source's pending edits are what is copied.
    FileHandle edited(sourcePath, FileHandle::Mode::Updating);
    edited.insertBytes(0, Bytes{5, 6});
    FileHandle target(targetPath, FileHandle::Mode::Creating);
    target.writeDataFromFile(edited, 0, 4);
    target.closeFile();
    EXPECT_EQ(test::readFile(targetPath), (Bytes{5, 6, source[0], source[1]}));

    FileHandle from(sourcePath, FileHandle::Mode::Reading);
    FileHandle short_(targetPath, FileHandle::Mode::Creating);
    EXPECT_THROW(short_.writeDataFromFile(from, std::ssize(source) - 10, 20), FileError);
}
