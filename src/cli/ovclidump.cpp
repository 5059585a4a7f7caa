#include "ovclidump.h"

#include "ovclicheck.h"

#include "project/ovjsonserializer.h"
#include "project/ovlocalfilestorage.h"

#include <QCommandLineParser>
#include <QFile>

#include <json/json.h>

#include <memory>

namespace {
bool parseDocument(const QByteArray &document, Json::Value *root)
{
    QByteArray json;
    if (!OVJsonSerializer::unwrap(document, &json))
        return false;
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    try {
        return reader->parse(json.constData(), json.constData() + json.size(), root, &errors)
            && root->isObject();
    } catch (const std::exception &) {
        return false;
    }
}

// Attachments can be large and are opaque: show what is there, not the bytes.
void summariseBinaryData(Json::Value *timeline)
{
    if (!timeline->isObject() || !timeline->isMember("binary_data"))
        return;
    Json::Value *binary = &(*timeline)["binary_data"];
    if (!binary->isArray())
        return;
    Json::Value summary(Json::arrayValue);
    for (const Json::Value &item : *binary) {
        if (!item.isObject())
            continue;
        Json::Value entry(Json::objectValue);
        entry["key"] = item.get("key", "");
        const Json::Value &data = item["data"];
        entry["size"] = Json::Value(Json::Int64(
            data.isString() ? QByteArray::fromBase64(QByteArray::fromStdString(data.asString())).size() : 0));
        summary.append(entry);
    }
    *binary = summary;
}
} // namespace

void OVCliDump::setup(QCommandLineParser &parser) const
{
    parser.addPositionalArgument(QStringLiteral("file"), QStringLiteral("The .kvpr or .kvtl file."));
}

int OVCliDump::run(const QCommandLineParser &parser) const
{
    const QStringList files = parser.positionalArguments();
    if (files.size() != 1) {
        printError(QStringLiteral("kavot-cli dump: exactly one file expected"));
        return UsageError;
    }
    const QString path = files.first();
    // A file is shown only once the reader that loads it has accepted it whole, so dump and
    // check never disagree about a file.
    const OV::Error refused = OVCliCheck::validate(path);
    if (!refused.isOk()) {
        printError(refused.message());
        return Failure;
    }
    Json::Value out(Json::objectValue);
    if (isLabelSetPath(path)) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly) || !parseDocument(file.readAll(), &out) || !out.isMember("labels")) {
            printError(QStringLiteral("Failed to load labels from:\n") + path);
            return Failure;
        }
    } else {
        QMap<QString, QByteArray> documents;
        const OV::Error error = OVLocalFileStorage::readDocuments(path, &documents);
        Json::Value project;
        if (!error.isOk() || !parseDocument(documents.value(QStringLiteral("project.json")), &project)) {
            printError(QStringLiteral("Failed to load project from:\n") + path);
            return Failure;
        }
        Json::Value timelines(Json::arrayValue);
        const Json::Value &ids = project["timeline_ids"];
        for (const Json::Value &id : ids) {
            if (!id.isString())
                continue;
            const QString entry
                = QStringLiteral("timelines/%1.json").arg(QString::fromStdString(id.asString()));
            Json::Value timeline;
            if (!documents.contains(entry) || !parseDocument(documents.value(entry), &timeline)) {
                printError(QStringLiteral("Failed to load project"));
                return Failure;
            }
            summariseBinaryData(&timeline);
            timelines.append(timeline);
        }
        out["project"] = project;
        out["timelines"] = timelines;
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    builder["emitUTF8"] = true;
    const std::string text = Json::writeString(builder, out);
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
    return Success;
}
