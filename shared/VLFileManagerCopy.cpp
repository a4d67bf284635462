// The verified, progress-reporting copy of one source to several destinations in one pass.
#include "shared/VLFileManager.h"
#include "shared/VLFileManagerHashing.h"
#include "shared/VLFileManagerInternal.h"
#include "shared/VLLog.h"

#include "platform/foundation/Foundation.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <vector>

#include <sys/stat.h>

namespace {

using FileHandle = std::unique_ptr<FILE, int (*)(FILE*)>;

constexpr size_t kChunk = 65536;
constexpr quint64 kMinimumProgressInterval = 20971520; // 20 MiB

FileHandle openFile(const QString& path, const char* mode)
{
    return FileHandle(std::fopen(QFile::encodeName(path).constData(), mode), &std::fclose);
}

// One copy in progress. Created and used on the copying thread only; the delegate messages it
// posts run on its serial background queue, which is drained before the copy reports its end.
class CopyJob {
public:
    CopyJob(const QString& source, const QStringList& destinations, unsigned type, VLFileManagerDelegate* delegate)
        : source_(source), destinations_(destinations), type_(type), md_(vlfm::digestForVerification(type)),
          delegate_(delegate)
    {
    }

    bool run(const QVariant& object, const QVariant& object2);

private:
    bool prepareDestinationFolders() const;
    bool openFiles();
    bool copyLoop();
    void writeChunk(size_t index, const unsigned char* data, size_t length);
    void reportProgress();
    void verify();
    void carryMetadata() const;

    const QString source_;
    const QStringList destinations_;
    const unsigned type_;
    const EVP_MD* const md_;
    VLFileManagerDelegate* const delegate_; // not owned; outlives the copy
    QVariantMap settings_;
    FileHandle input_{nullptr, &std::fclose};
    std::vector<FileHandle> outputs_;
    vlfm::DigestContext sourceDigest_{nullptr, &EVP_MD_CTX_free};
    std::vector<vlfm::DigestContext> destDigests_;
    std::unique_ptr<unsigned char[]> readBuffer_;
    std::unique_ptr<unsigned char[]> backBuffer_;
    quint64 sourceSize_ = 0;
    quint64 interval_ = kMinimumProgressInterval;
    quint64 total_ = 0;
    quint64 lastReported_ = 0;
    std::shared_ptr<std::atomic<bool>> stop_ = std::make_shared<std::atomic<bool>>(false);
    vlfm::DelegateQueue queue_;
};

bool CopyJob::prepareDestinationFolders() const
{
    for (const QString& destination : destinations_) {
        const QString folder = fnd::stringByDeletingLastPathComponent(destination);
        if (folder.isEmpty() || QFileInfo::exists(folder))
            continue;
        if (!VLFileManager::createDirectoryTimeout(folder, 10)) {
            vlfm::console(QStringLiteral("Unable to copy file %@ - destination directory %@ doesn't exist. "
                                         "Aborting copy process..."),
                          source_, folder);
            return false;
        }
    }
    return true;
}

bool CopyJob::openFiles()
{
    input_ = openFile(source_, "rb");
    struct stat st {};
    if (!input_ || ::fstat(fileno(input_.get()), &st) != 0) {
        vlfm::console(QStringLiteral("Error: Unable to read source file %@. Aborting copy process..."), source_);
        return false;
    }
    sourceSize_ = quint64(st.st_size);
    interval_ = std::max<quint64>(sourceSize_ / 500, kMinimumProgressInterval);
    for (const QString& destination : destinations_) {
        FileHandle output = openFile(destination, "w+");
        if (!output) {
            vlfm::console(QStringLiteral("Error: Unable to open destination file %@. Aborting copy process..."),
                          destination);
            return false;
        }
        // Unbuffered, so that the read-back below sees what reached the file, not a stdio buffer.
        std::setvbuf(output.get(), nullptr, _IONBF, 0);
        outputs_.push_back(std::move(output));
        if (md_)
            destDigests_.push_back(vlfm::newDigest(md_));
    }
    if (md_)
        sourceDigest_ = vlfm::newDigest(md_);
    return true;
}

void CopyJob::writeChunk(size_t index, const unsigned char* data, size_t length)
{
    FILE* out = outputs_[index].get();
    const QString& destination = destinations_.at(int(index));
    const off_t position = ::ftello(out);
    if (std::fwrite(data, 1, length, out) < length)
        VLLog::appendLog(QStringLiteral("Error writing file %@: %i"), destination, std::ferror(out));
    if (type_ == VLFileManager::VerifyNone)
        return;
    if (position < 0 || ::fseeko(out, position, SEEK_SET) != 0) {
        const int error = errno;
        VLLog::appendLog(QStringLiteral("Error: unable to seek within file %@"), destination);
        VLLog::appendLog(QStringLiteral("cur pos: %llu"), quint64(position < 0 ? 0 : position));
        VLLog::appendLog(QStringLiteral("read size: %zu"), quint64(length));
        VLLog::appendLog(QStringLiteral("errno: %i"), error);
        VLLog::appendLog(QStringLiteral("err: %i"), std::ferror(out));
        return;
    }
    const size_t back = std::fread(backBuffer_.get(), 1, length, out);
    if (md_ && destDigests_[index])
        EVP_DigestUpdate(destDigests_[index].get(), backBuffer_.get(), back);
}

void CopyJob::reportProgress()
{
    if (!delegate_ || total_ - lastReported_ < interval_)
        return;
    const QVariantMap snapshot = settings_;
    const quint64 total = total_;
    if (auto written = delegate_->fileCopyBytesWritten)
        queue_.post([written, total, snapshot] { written(total, snapshot); });
    if (auto shouldContinue = delegate_->fileCopyShouldContinue) {
        auto stop = stop_;
        queue_.post([shouldContinue, snapshot, stop] {
            if (!shouldContinue(snapshot))
                stop->store(true);
        });
    }
    lastReported_ = total_;
}

bool CopyJob::copyLoop()
{
    for (;;) {
        const size_t got = std::fread(readBuffer_.get(), 1, kChunk, input_.get());
        if (got < kChunk && std::ferror(input_.get())) {
            VLLog::appendLogAndPrint(QStringLiteral("Error reading file %@ - aborting..."), source_);
            return false;
        }
        if (got == 0)
            return true;
        if (sourceDigest_)
            EVP_DigestUpdate(sourceDigest_.get(), readBuffer_.get(), got);
        for (size_t i = 0; i < outputs_.size() && !stop_->load(); ++i)
            writeChunk(i, readBuffer_.get(), got);
        total_ += got;
        reportProgress();
        if (got < kChunk || stop_->load())
            return true;
    }
}

void CopyJob::verify()
{
    if (!md_)
        return;
    const QString sourceChecksum = vlfm::finishDigest(sourceDigest_.get());
    settings_.insert(QStringLiteral("sourceChecksum"), sourceChecksum);
    QVariantList checksums;
    for (size_t i = 0; i < destDigests_.size(); ++i) {
        const QString checksum = vlfm::finishDigest(destDigests_[i].get());
        checksums.append(checksum);
        settings_.insert(QStringLiteral("destChecksums"), checksums);
        if (checksum != sourceChecksum && delegate_ && delegate_->fileCopyVerificationFailed) {
            settings_.insert(QStringLiteral("destChecksum"), checksum);
            delegate_->fileCopyVerificationFailed(settings_, destinations_.at(int(i)));
        }
    }
}

} // namespace

namespace {

void CopyJob::carryMetadata() const
{
    for (const QString& destination : destinations_) {
        QString error;
        if (!vlfm::copyMetadata(source_, destination, &error))
            vlfm::console(QStringLiteral("Error setting metadata for file %@ - %@"), destination, error);
    }
}

bool CopyJob::run(const QVariant& object, const QVariant& object2)
{
    if (!prepareDestinationFolders())
        return false;
    settings_.insert(QStringLiteral("source"), source_);
    settings_.insert(QStringLiteral("destinations"), destinations_);
    if (delegate_)
        settings_.insert(QStringLiteral("delegate"), QVariant::fromValue(delegate_));
    if (object.isValid())
        settings_.insert(QStringLiteral("object"), object);
    if (object2.isValid())
        settings_.insert(QStringLiteral("object2"), object2);
    if (!openFiles())
        return false;
    readBuffer_.reset(new (std::nothrow) unsigned char[kChunk]);
    backBuffer_.reset(new (std::nothrow) unsigned char[kChunk]);
    if (!readBuffer_ || !backBuffer_ || (md_ && !sourceDigest_)) {
        VLLog::appendLogAndPrint(QStringLiteral("Error copying file %@ - out of memory"), source_);
        return false;
    }
    const bool completed = copyLoop();
    input_.reset();
    outputs_.clear();
    queue_.drain();
    if (!completed || stop_->load())
        return false;
    if (total_ < sourceSize_) {
        vlfm::console(QStringLiteral("Error: copied file size does not match original source %@"), source_);
        return false;
    }
    if (delegate_ && delegate_->fileCopyBytesWritten)
        delegate_->fileCopyBytesWritten(total_, settings_);
    verify();
    carryMetadata();
    if (delegate_ && delegate_->fileCopyFinished)
        delegate_->fileCopyFinished(settings_);
    return true;
}

} // namespace

bool VLFileManager::copyFileWithProgress(const QString& source, const QString& destination,
                                         VLFileManagerDelegate* delegate, const QVariant& object,
                                         const QVariant& object2)
{
    return copyFileWithProgress(source, QStringList{destination}, VerifyNone, delegate, object, object2);
}

bool VLFileManager::copyFileWithProgress(const QString& source, const QStringList& destinations,
                                         unsigned verificationType, VLFileManagerDelegate* delegate,
                                         const QVariant& object, const QVariant& object2)
{
    if (source.isEmpty() || !QFileInfo::exists(source)) {
        vlfm::console(QStringLiteral("Error: File %@ doesn't exist. Aborting copy process..."), source);
        return false;
    }
    if (destinations.isEmpty()) {
        vlfm::console(QStringLiteral("Error: You must have at least one destination. Aborting copy process..."));
        return false;
    }
    CopyJob job(source, destinations, verificationType, delegate);
    return job.run(object, object2);
}
