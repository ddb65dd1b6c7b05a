// Export templates: dictionary form, keyed access and template files.
#include <gtest/gtest.h>

#include "QuickTimePlugin/QuilloraTemplate.h"
#include "TestSupport.h"
#include "foundation/PropertyList.h"

using namespace quillora;

TEST(QuilloraTemplate, DictionaryFormAlwaysHasTheFourKeysAndKeyedAccessOnlyThose)
{
    auto empty = QuilloraTemplate::templateWithDictionaryRepresentation(Value::dictionary());
    EXPECT_EQ(
        empty.dictionaryRepresentation(),
        Value::dictionary({{"name", Value()}, {"format", Value()}, {"pluginClassName", Value()}, {"tags", Value()}}));

    auto tags = Value::dictionary({{"title", "Week 3"}, {"class name", "Optics"}});
    auto full = QuilloraTemplate::templateWithDictionaryRepresentation(Value::dictionary(
        {{"name", "Weekly"}, {"format", ".m4b"}, {"pluginClassName", "QuickTimePlugin"}, {"tags", tags}, {"x", 1}}));
    EXPECT_EQ(full.dictionaryRepresentation(),
              Value::dictionary(
                  {{"name", "Weekly"}, {"format", ".m4b"}, {"pluginClassName", "QuickTimePlugin"}, {"tags", tags}}));
    EXPECT_EQ(full.tags().asDictionary(), tags.asDictionary());  // the same dictionary, not a copy
    EXPECT_EQ(QuilloraTemplate(full.dictionaryRepresentation()), full);

    full.setObject(".mov", kQuilloraTemplateFormatKey);
    EXPECT_EQ(full.format(), ".mov");
    EXPECT_THROW(full.objectForKey("Name"), UnknownTemplateKey);
    EXPECT_THROW(full.setObject("x", "title"), UnknownTemplateKey);
}

TEST(QuilloraTemplate, FilesReadBackEqualAndEmptyFieldsStayEmpty)
{
    test::TemporaryFolder folder;
    QuilloraTemplate written;
    written.setName("Weekly lecture");
    written.setFormat(".m4a");
    written.setTags(Value::dictionary({{"author", "Dr. \xC3\x89lise Roy"}, {"class number", "PHY 201"}}));
    const auto path = folder.path() / (std::string("weekly.") + std::string(kQuilloraTemplatePathExtension));
    written.writeToFile(path);

    const Bytes bytes = test::readFile(path);
    const std::string xml(bytes.begin(), bytes.end());
    EXPECT_NE(xml.find("<key>format</key>"), std::string::npos) << xml;
    EXPECT_EQ(xml.find("pluginClassName"), std::string::npos) << xml;

    auto read = QuilloraTemplate::templateWithContentsOfFile(path);
    EXPECT_EQ(read, written);
    EXPECT_TRUE(read.dictionaryRepresentation().get("pluginClassName")->isNull());

    writePropertyListFile(folder.path() / "list.quilloraTemplate", Value::array({Value("not a template")}));
    EXPECT_THROW(QuilloraTemplate::templateWithContentsOfFile(folder.path() / "list.quilloraTemplate"), FormatError);
}
