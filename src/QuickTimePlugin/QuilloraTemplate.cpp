#include "QuickTimePlugin/QuilloraTemplate.h"

#include "foundation/PropertyList.h"

namespace quillora {

namespace {

std::optional<std::string> textOf(const Value& value)
{
    if (const auto* text = value.asString()) return *text;
    return std::nullopt;
}

Value valueOf(std::optional<std::string> text)
{
    return text ? Value(std::move(*text)) : Value();
}

}  // namespace

template <typename Template> auto& QuilloraTemplate::field(Template& self, std::string_view key)
{
    if (key == kQuilloraTemplateNameKey) return self.name_;
    if (key == kQuilloraTemplateFormatKey) return self.format_;
    if (key == kQuilloraTemplatePluginClassNameKey) return self.pluginClassName_;
    if (key == kQuilloraTemplateTagsKey) return self.tags_;
    throw UnknownTemplateKey(key);
}

QuilloraTemplate::QuilloraTemplate(const Value& dictionary)
{
    for (std::string_view key : {kQuilloraTemplateNameKey, kQuilloraTemplateFormatKey,
                                 kQuilloraTemplatePluginClassNameKey, kQuilloraTemplateTagsKey}) {
        if (const Value* value = dictionary.get(key)) field(*this, key) = *value;
    }
}

QuilloraTemplate QuilloraTemplate::templateWithDictionaryRepresentation(const Value& dictionary)
{
    return QuilloraTemplate(dictionary);
}

Value QuilloraTemplate::dictionaryRepresentation() const
{
    return Value::dictionary({{std::string(kQuilloraTemplateNameKey), name_},
                              {std::string(kQuilloraTemplateFormatKey), format_},
                              {std::string(kQuilloraTemplatePluginClassNameKey), pluginClassName_},
                              {std::string(kQuilloraTemplateTagsKey), tags_}});
}

Value QuilloraTemplate::objectForKey(std::string_view key) const
{
    return field(*this, key);
}

void QuilloraTemplate::setObject(Value object, std::string_view key)
{
    field(*this, key) = std::move(object);
}

std::optional<std::string> QuilloraTemplate::name() const
{
    return textOf(name_);
}
void QuilloraTemplate::setName(std::optional<std::string> name)
{
    name_ = valueOf(std::move(name));
}
std::optional<std::string> QuilloraTemplate::format() const
{
    return textOf(format_);
}
void QuilloraTemplate::setFormat(std::optional<std::string> format)
{
    format_ = valueOf(std::move(format));
}
std::optional<std::string> QuilloraTemplate::pluginClassName() const
{
    return textOf(pluginClassName_);
}
void QuilloraTemplate::setPluginClassName(std::optional<std::string> pluginClassName)
{
    pluginClassName_ = valueOf(std::move(pluginClassName));
}

QuilloraTemplate QuilloraTemplate::templateWithContentsOfFile(const std::filesystem::path& path)
{
    Value contents = readValueFile(path);
    if (!contents.isDictionary()) throw FormatError(path.string() + " does not hold a template dictionary");
    return QuilloraTemplate(contents);
}

void QuilloraTemplate::writeToFile(const std::filesystem::path& path) const
{
    auto stored = Value::dictionary();
    const auto fields = dictionaryRepresentation().asDictionary();
    for (const auto& [key, value] : *fields) {
        if (!value.isNull()) stored.asDictionary()->set(key, value);
    }
    writePropertyListFile(path, stored);
}

}  // namespace quillora
