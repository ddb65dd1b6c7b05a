#include "publish/CourseState.h"

#include <sys/stat.h>

#include "foundation/PropertyList.h"
#include "foundation/Value.h"
#include "publish/ContentHash.h"
#include "publish/PublishError.h"
#include "publish/StagedOutput.h"

namespace quillora::publish {

namespace {

std::int64_t integer(const Value& value, std::string_view key)
{
    return value.integerForKey(key).value_or(0);
}

}  // namespace

CourseState::CourseState(std::filesystem::path folder) : folder_(std::move(folder))
{
    const auto file = folder_ / kFileName;
    if (!std::filesystem::is_regular_file(file)) return;
    Value root;
    try {
        const Bytes bytes = readWholeFile(file);
        savedText_.assign(bytes.begin(), bytes.end());
        root = valueFromJson(savedText_);
    } catch (const std::exception&) {
        return;
    }
    if (const Value* files = root.get("files"); files && files->asDictionary()) {
        for (const auto& [path, entry] : *files->asDictionary()) {
            fingerprints_[path] = {static_cast<std::uintmax_t>(integer(entry, "size")), integer(entry, "modified"),
                                   static_cast<std::uint64_t>(integer(entry, "inode")),
                                   entry.stringForKey("sha256").value_or("")};
        }
    }
    if (const Value* published = root.get("lectures"); published && published->asDictionary()) {
        for (const auto& [slug, entry] : *published->asDictionary()) {
            PublishRecord record;
            record.inputs = entry.stringForKey("inputs").value_or("");
            record.file = entry.stringForKey("file").value_or("");
            record.bytes = static_cast<std::uintmax_t>(integer(entry, "bytes"));
            if (const Value* seconds = entry.get("seconds")) record.seconds = seconds->asReal().value_or(0);
            record.artwork = entry.stringForKey("artwork");
            record.firstPublished = integer(entry, "firstPublished");
            if (!record.inputs.empty() && !record.file.empty()) lectures[slug] = record;
        }
    }
    artworkInputs = root.stringForKey("artwork");
}

std::string CourseState::contentHash(const std::filesystem::path& file)
{
    const std::string key = std::filesystem::absolute(file).lexically_normal().string();
    used_.insert(key);
    struct stat facts {};
    if (::stat(key.c_str(), &facts) != 0) return sha256OfFile(file);  // which says why it cannot be read
    const Fingerprint now{static_cast<std::uintmax_t>(facts.st_size),
                          static_cast<std::int64_t>(facts.st_mtim.tv_sec) * 1000000000 + facts.st_mtim.tv_nsec,
                          static_cast<std::uint64_t>(facts.st_ino),
                          {}};
    auto& known = fingerprints_[key];
    if (known.sha256.empty() || known.size != now.size || known.modified != now.modified || known.inode != now.inode) {
        known = now;
        known.sha256 = sha256OfFile(file);
    }
    return known.sha256;
}

void CourseState::save()
{
    Value files = Value::dictionary();
    for (const auto& [path, fingerprint] : fingerprints_) {
        if (!used_.contains(path)) continue;
        files.asDictionary()->set(path, Value::dictionary({{"size", static_cast<std::int64_t>(fingerprint.size)},
                                                           {"modified", fingerprint.modified},
                                                           {"inode", static_cast<std::int64_t>(fingerprint.inode)},
                                                           {"sha256", fingerprint.sha256}}));
    }
    Value published = Value::dictionary();
    for (const auto& [slug, record] : lectures) {
        Value entry = Value::dictionary({{"inputs", record.inputs},
                                         {"file", record.file},
                                         {"bytes", static_cast<std::int64_t>(record.bytes)},
                                         {"seconds", record.seconds},
                                         {"firstPublished", record.firstPublished}});
        if (record.artwork) entry.asDictionary()->set("artwork", *record.artwork);
        published.asDictionary()->set(slug, entry);
    }
    Value root = Value::dictionary({{"version", 1}, {"lectures", published}, {"files", files}});
    if (artworkInputs) root.asDictionary()->set("artwork", *artworkInputs);
    const std::string text = jsonFromValue(root) + "\n";
    if (text == savedText_) return;
    writeWholeFile(folder_ / kFileName, text);
    savedText_ = text;
}

}  // namespace quillora::publish
