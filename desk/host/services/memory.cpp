#include "desk/host/services/memory.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "desk/host/services/host_state.h"

namespace desk {
namespace {

void Count(Memory& memory, const void* block) {
    memory.With([&](Blocks& blocks) {
        blocks.live.insert(block);
        ++blocks.total;
    });
}

int NodePosixMemalign(void** block, size_t alignment, size_t size) {
    const ServiceCall call(service::PosixMemalign);
    if (!call.Needs({block}) || call.fails) {
        return static_cast<int>(call.result);
    }
    const int error = ::posix_memalign(block, alignment, size);
    if (error == 0) {
        Count(call->memory, *block);
    }
    return error;
}

void* NodeMalloc(size_t size) {
    const ServiceCall call(service::Malloc);
    void* block = call.fails ? nullptr : std::malloc(size);
    if (block != nullptr) {
        Count(call->memory, block);
    }
    return block;
}

void NodeFree(void* block) {
    // A library that stays loaded after its host frees what it holds when the process ends.
    if (HostState* host = HostState::Current()) {
        host->memory.With([&](Blocks& blocks) { blocks.live.erase(block); });
    }
    std::free(block);
}

/// Where a loaded library lies.
struct Loaded {
    ElfW(Addr) address = 0;
    std::map<ElfW(Sxword), ElfW(Addr)> dynamic;  ///< the last of each tag of the dynamic section
    /// The pages that the loader made read-only after relocation.
    ElfW(Addr) readOnlyBegin = 0;
    ElfW(Addr) readOnlyEnd = 0;
};

ElfW(Addr) PageOf(ElfW(Addr) address) {
    return address & ~(static_cast<ElfW(Addr)>(::sysconf(_SC_PAGESIZE)) - 1);
}

/// The library that `inside` lies in. What is mapped of it begins with its file's header.
Loaded FindLibrary(const void* inside) {
    Dl_info found = {};
    if (::dladdr(inside, &found) == 0) {
        throw std::runtime_error("the loader does not tell where the node library lies in memory");
    }
    Loaded library;
    library.address = reinterpret_cast<ElfW(Addr)>(found.dli_fbase);
    const auto* header = static_cast<const ElfW(Ehdr)*>(found.dli_fbase);
    const auto* segments = reinterpret_cast<const ElfW(Phdr)*>(library.address + header->e_phoff);
    for (const ElfW(Phdr)* segment = segments; segment != segments + header->e_phnum; ++segment) {
        const ElfW(Addr) begin = library.address + segment->p_vaddr;
        if (segment->p_type == PT_DYNAMIC) {
            const auto* entry = reinterpret_cast<const ElfW(Dyn)*>(begin);
            for (; entry->d_tag != DT_NULL; ++entry) {
                library.dynamic[entry->d_tag] = entry->d_un.d_ptr;
            }
        } else if (segment->p_type == PT_GNU_RELRO) {
            // A last page that is only in part of the segment stays writable.
            library.readOnlyBegin = PageOf(begin);
            library.readOnlyEnd = PageOf(begin + segment->p_memsz);
        }
    }
    return library;
}

/// The table that the dynamic section names under a tag. glibc has already added the load address to the
/// addresses there, Android's loader has not.
template <typename T>
const T* Table(const Loaded& library, ElfW(Sxword) tag) {
    const auto found = library.dynamic.find(tag);
    if (found == library.dynamic.end()) {
        throw std::runtime_error("the node library has no symbol or relocation table to find its imports in");
    }
    const ElfW(Addr) address = found->second;
    return reinterpret_cast<const T*>(address < library.address ? library.address + address : address);
}

void Protect(const Loaded& library, int protection) {
    if (::mprotect(reinterpret_cast<void*>(library.readOnlyBegin),
                   library.readOnlyEnd - library.readOnlyBegin, protection) != 0) {
        throw std::system_error(errno, std::generic_category(),
                                "the protection of the node library's import slots cannot be changed");
    }
}

}  // namespace

void CountAllocations(const void* inside) {
    static const std::map<std::string_view, void*> replacements = {
        {"posix_memalign", reinterpret_cast<void*>(&NodePosixMemalign)},
        {"malloc", reinterpret_cast<void*>(&NodeMalloc)},
        {"free", reinterpret_cast<void*>(&NodeFree)}};
    const Loaded library = FindLibrary(inside);
    const auto* symbols = Table<ElfW(Sym)>(library, DT_SYMTAB);
    const auto* names = Table<char>(library, DT_STRTAB);
    // Both are there, or nothing is redirected.
    const std::pair<const ElfW(Rela)*, size_t> tables[] = {
        {Table<ElfW(Rela)>(library, DT_JMPREL), library.dynamic.at(DT_PLTRELSZ)},
        {Table<ElfW(Rela)>(library, DT_RELA), library.dynamic.at(DT_RELASZ)}};
    Protect(library, PROT_READ | PROT_WRITE);
    for (const auto& [relocations, bytes] : tables) {
        for (size_t i = 0; i < bytes / sizeof(ElfW(Rela)); ++i) {
            const char* name = names + symbols[ELF64_R_SYM(relocations[i].r_info)].st_name;
            const auto found = replacements.find(name);
            if (found != replacements.end()) {
                *reinterpret_cast<void**>(library.address + relocations[i].r_offset) = found->second;
            }
        }
    }
    Protect(library, PROT_READ);
}

}  // namespace desk
