#pragma once

#include <cstdint>
#include <map>

#include "node/dewarp/gpu/gpuapi.h"
#include "utils/orbamemory.h"

class NativeBuffer;

/// One imported buffer. Input entries never fill `fd`, so their flush messages print 0.
struct bufMapInfo {
    uint32_t fd = 0;       ///< output entries only: the key
    uint32_t isInput = 0;  ///< 1 input, 0 output
    NativeBuffer* pNativeBuffer = nullptr;
    EGLImageKHR hEGLImage = nullptr;
    GLuint hColorTexture = 0;  ///< input: the external texture
    GLuint hRenderBuffer = 0;  ///< output: the colour attachment
    GLuint fbo = 0;            ///< output: the framebuffer
    void* pAddr = nullptr;     ///< the image's CPU address at import
};

/// Where a map's allocator finds the memory of the next element.
struct BufferMapSpare {
    static constexpr size_t Size = 128;  ///< bytes; holds a map node of any standard library in use
    void* pMemory = nullptr;
};

/// Hands out the spare, so that the map itself never meets an allocation failure: the standard map writes
/// to whatever its allocator returns, and this library's memory may come back null.
template <typename T>
class BufferMapAllocator {
public:
    using value_type = T;

    explicit BufferMapAllocator(BufferMapSpare* pSpare) : m_pSpare(pSpare) {}
    template <typename U>
    BufferMapAllocator(const BufferMapAllocator<U>& other) : m_pSpare(other.m_pSpare) {}

    T* allocate(size_t /*count: the map asks for one node at a time*/) {
        static_assert(sizeof(T) <= BufferMapSpare::Size, "the spare holds a node of the map");
        T* p = static_cast<T*>(m_pSpare->pMemory);
        m_pSpare->pMemory = nullptr;
        return p;
    }
    void deallocate(T* p, size_t /*count*/) {
        OrbaFree(p, 0, nullptr, 0);
    }

    template <typename U>
    bool operator==(const BufferMapAllocator<U>& other) const {
        return m_pSpare == other.m_pSpare;
    }
    template <typename U>
    bool operator!=(const BufferMapAllocator<U>& other) const {
        return !(*this == other);
    }

private:
    template <typename U>
    friend class BufferMapAllocator;

    BufferMapSpare* m_pSpare;
};

/// Imported buffers by file descriptor, in key order. Empty, it owns no memory: the engine that holds it
/// is released without a destructor.
class BufferMap {
public:
    using Map = std::map<uint32_t, bufMapInfo, std::less<uint32_t>,
                         BufferMapAllocator<std::pair<const uint32_t, bufMapInfo>>>;
    using iterator = Map::iterator;

    BufferMap() : m_map(Map::allocator_type(&m_spare)) {}

    iterator find(uint32_t key) {
        return m_map.find(key);
    }
    iterator begin() {
        return m_map.begin();
    }
    iterator end() {
        return m_map.end();
    }
    iterator erase(iterator entry) {
        return m_map.erase(entry);
    }

    /// Inserts or overwrites. False, and nothing stored, when there is no memory.
    bool Store(uint32_t key, const bufMapInfo& info) {
        const iterator entry = m_map.find(key);
        if (entry != m_map.end()) {
            entry->second = info;
            return true;
        }
        m_spare.pMemory = OrbaCalloc(BufferMapSpare::Size, 0, OrbaAllocZeroFill, 0, nullptr, 0);
        if (m_spare.pMemory == nullptr) {
            return false;
        }
        m_map.emplace(key, info);
        return true;
    }

private:
    BufferMap(const BufferMap&) = delete;
    BufferMap& operator=(const BufferMap&) = delete;

    BufferMapSpare m_spare;
    Map m_map;
};
