#include "desk/host/services/file_store.h"

#include <utility>

namespace desk {

FileStore::FileStore(std::filesystem::path dumpDir) : dumpDir_(std::move(dumpDir)) {}

const std::filesystem::path& FileStore::DumpDir() const {
    return dumpDir_;
}

FILE* FileStore::Open(const std::string& devicePath, const char* mode) {
    const std::filesystem::path path(devicePath);
    if (path.parent_path() != DeviceDir) {
        return nullptr;
    }
    FILE* file = std::fopen((dumpDir_ / path.filename()).c_str(), mode);
    if (file != nullptr) {
        const std::lock_guard<std::mutex> lock(mutex_);
        files_.insert(file);
    }
    return file;
}

bool FileStore::IsOpen(FILE* file) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return files_.count(file) != 0;
}

int FileStore::Close(FILE* file) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (files_.erase(file) == 0) {
            return EOF;
        }
    }
    return std::fclose(file);
}

size_t FileStore::OpenCount() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return files_.size();
}

void FileStore::CloseAll() {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (FILE* file : files_) {
        static_cast<void>(std::fclose(file));
    }
    files_.clear();
}

}  // namespace desk
