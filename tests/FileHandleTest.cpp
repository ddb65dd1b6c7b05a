// The file layer's one seam for moving bytes: insert and remove at an offset,
// streamed through a fixed buffer of any size.
#include <gtest/gtest.h>

#include <random>

#include "TestSupport.h"
#include "foundation/FileHandle.h"
#include "foundation/Progress.h"

using namespace quillora;

TEST(FileHandle, InsertAndRemoveMatchAPlainVectorForEveryBufferSize)
{
    test::TemporaryFolder folder;
    auto path = folder.path() / "data";
    std::mt19937 random(42);
    Bytes model(1000);
    for (auto& b : model) b = static_cast<std::uint8_t>(random());
    test::writeFile(path, model);

    for (std::size_t buffer : {std::size_t{1}, std::size_t{3}, std::size_t{64}, std::size_t{4096}}) {
        FileHandle file(path, FileHandle::Mode::Updating);
        file.setMoveBufferSize(buffer);
        for (int round = 0; round < 20; ++round) {
            const auto offset = static_cast<std::int64_t>(random() % (model.size() + 1));
            if (random() % 2) {
                Bytes data(random() % 50, static_cast<std::uint8_t>(round));
                file.insertBytes(offset, data);
                model.insert(model.begin() + offset, data.begin(), data.end());
            } else {
                const auto count = static_cast<std::int64_t>(random() % 60);
                file.removeBytes(offset, count);
                model.erase(model.begin() + offset,
                            model.begin() +
                                std::min<std::int64_t>(offset + count, static_cast<std::int64_t>(model.size())));
            }
            ASSERT_EQ(file.length(), static_cast<std::int64_t>(model.size())) << "buffer " << buffer;
        }
        file.closeFile();
        EXPECT_EQ(test::readFile(path), model) << "buffer " << buffer;
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
    EXPECT_THROW(FileHandle::copyFile(path, copy), FileError);  // never over an existing file
    FileHandle file(copy, FileHandle::Mode::Updating);
    file.setMoveBufferSize(64);
    reports.clear();
    file.insertBytes(10, Bytes{1, 2});  // 90 bytes of tail move
    file.removeBytes(0, 30);            // 72 bytes of tail move
    EXPECT_EQ(reports, (Reports{{64, 90}, {90, 90}, {64, 72}, {72, 72}}));
    setProgressSink(previous);
}
