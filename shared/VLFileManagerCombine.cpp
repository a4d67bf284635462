// Joining several files into one, in 65536-byte chunks.
#include "shared/VLFileManager.h"
#include "shared/VLFileManagerInternal.h"
#include "shared/VLLog.h"

#include <QFile>
#include <QFileInfo>

#include <cstdio>
#include <memory>

namespace {

using FileHandle = std::unique_ptr<FILE, int (*)(FILE*)>;
constexpr size_t kChunk = 65536;

FileHandle openFile(const QString& path, const char* mode)
{
    return FileHandle(std::fopen(QFile::encodeName(path).constData(), mode), &std::fclose);
}

// Appends one source to the open destination; false (logged) on an open or read failure.
bool appendSource(const QString& source, const QString& destination, FILE* out, unsigned char* buffer)
{
    FileHandle in = openFile(source, "rb");
    if (!in) {
        vlfm::console(QStringLiteral("Error: Unable to open source file %@. Aborting combination process..."), source);
        return false;
    }
    for (;;) {
        const size_t got = std::fread(buffer, 1, kChunk, in.get());
        if (got < kChunk && std::ferror(in.get())) {
            VLLog::appendLogAndPrint(QStringLiteral("Error reading file %@ - aborting..."), source);
            return false;
        }
        if (got > 0 && std::fwrite(buffer, 1, got, out) < got)
            VLLog::appendLog(QStringLiteral("Error writing file %@: %i"), destination, std::ferror(out));
        if (got < kChunk)
            return true;
    }
}

} // namespace

bool VLFileManager::combineFiles(const QStringList& sources, const QString& destination, bool deleteSourceFiles)
{
    if (sources.isEmpty()) {
        vlfm::console(QStringLiteral("Error: No source file URLs specified. Aborting combination process..."));
        return false;
    }
    if (destination.isEmpty()) {
        vlfm::console(QStringLiteral("Error: No destination specified. Aborting combination process..."));
        return false;
    }
    for (const QString& source : sources)
        if (!QFileInfo::exists(source)) {
            vlfm::console(QStringLiteral("Error: File %@ doesn't exist. Aborting combination process..."), source);
            return false;
        }
    if (sources.size() == 1) {
        // A single part is moved into place, whatever the deletion flag says.
        // A failed removal is logged by removeFile; the move then fails on its own terms.
        if (vlfm::existsNoFollow(destination))
            (void)removeFileTimeout(destination, 5);
        return moveFileTimeout(sources.first(), destination, 10);
    }
    FileHandle out = openFile(destination, "w+");
    if (!out) {
        vlfm::console(QStringLiteral("Error: Unable to open destination file %@. Aborting combination process..."),
                      destination);
        return false;
    }
    std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[kChunk]);
    if (!buffer) {
        VLLog::appendLogAndPrint(QStringLiteral("Error combining file %@ - out of memory"), destination);
        return false;
    }
    for (const QString& source : sources) {
        if (!appendSource(source, destination, out.get(), buffer.get()))
            return false;
        if (deleteSourceFiles)
            (void)removeFile(source, false); // logs its own failure
    }
    return true;
}
