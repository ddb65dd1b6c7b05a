// The file layer's one seam for moving bytes: insert and remove at an offset,
// streamed through a fixed buffer of any size.
#include <gtest/gtest.h>

#include <random>

#include "TestSupport.h"
#include "foundation/FileHandle.h"

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
