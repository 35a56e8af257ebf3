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

#if defined(__x86_64__)
constexpr uint32_t JumpSlot = R_X86_64_JUMP_SLOT;
constexpr uint32_t GlobalData = R_X86_64_GLOB_DAT;
#elif defined(__aarch64__)
constexpr uint32_t JumpSlot = R_AARCH64_JUMP_SLOT;
constexpr uint32_t GlobalData = R_AARCH64_GLOB_DAT;
#else
#error "The desk runs on x86-64 and AArch64"
#endif

/// Where a loaded library lies.
struct Loaded {
    ElfW(Addr) address = 0;
    const ElfW(Dyn) * dynamic = nullptr;
    /// The pages that the loader made read-only after relocation.
    ElfW(Addr) readOnlyBegin = 0;
    ElfW(Addr) readOnlyEnd = 0;
};

/// What the dynamic section says under a tag; 0 when it says nothing.
ElfW(Addr) Entry(const Loaded& library, ElfW(Sxword) tag) {
    const ElfW(Dyn)* entry = library.dynamic;
    while (entry->d_tag != DT_NULL && entry->d_tag != tag) {
        ++entry;
    }
    return entry->d_tag == tag ? entry->d_un.d_ptr : 0;
}

/// The table that the dynamic section names under a tag. glibc has already added the load address to the
/// addresses there, Android's loader has not.
template <typename T>
const T* Table(const Loaded& library, ElfW(Sxword) tag) {
    const ElfW(Addr) address = Entry(library, tag);
    if (address == 0) {
        throw std::runtime_error("the node library has no symbol or relocation table to find its imports in");
    }
    return reinterpret_cast<const T*>(address < library.address ? library.address + address : address);
}

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
            library.dynamic = reinterpret_cast<const ElfW(Dyn)*>(begin);
        } else if (segment->p_type == PT_GNU_RELRO) {
            // A last page that is only in part of the segment stays writable.
            library.readOnlyBegin = PageOf(begin);
            library.readOnlyEnd = PageOf(begin + segment->p_memsz);
        }
    }
    return library;
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
        {Table<ElfW(Rela)>(library, DT_JMPREL), Entry(library, DT_PLTRELSZ)},
        {Table<ElfW(Rela)>(library, DT_RELA), Entry(library, DT_RELASZ)}};
    Protect(library, PROT_READ | PROT_WRITE);
    for (const auto& [relocations, bytes] : tables) {
        for (size_t i = 0; i < bytes / sizeof(ElfW(Rela)); ++i) {
            const auto type = static_cast<uint32_t>(ELF64_R_TYPE(relocations[i].r_info));
            const char* name = names + symbols[ELF64_R_SYM(relocations[i].r_info)].st_name;
            const auto found = replacements.find(name);
            if ((type == JumpSlot || type == GlobalData) && found != replacements.end()) {
                *reinterpret_cast<void**>(library.address + relocations[i].r_offset) = found->second;
            }
        }
    }
    Protect(library, PROT_READ);
}

}  // namespace desk
