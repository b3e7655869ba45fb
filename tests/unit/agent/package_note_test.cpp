// What the program's file tells of itself without being run.
#include <gtest/gtest.h>
#include <link.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace {

constexpr uint32_t kPackage = 0xcafe1a7e;

struct Note {
    ElfW(Nhdr) head;
    std::string owner, text;
    int count = 0;  // of its kind
};

size_t whole_words(size_t length) {
    return (length + 3) / 4 * 4;
}

void look_through(const char *at, const char *end, Note &found) {
    while (static_cast<size_t>(end - at) >= sizeof found.head) {
        ElfW(Nhdr) head;
        std::memcpy(&head, at, sizeof head);
        const char *owner = at + sizeof head, *text = owner + whole_words(head.n_namesz);
        if (head.n_type == kPackage) {
            found.head = head;
            found.owner.assign(owner, head.n_namesz);
            found.text.assign(text, head.n_descsz);
            found.count++;
        }
        at = text + whole_words(head.n_descsz);
    }
}

// The first object is the program itself.
int look_through_program(dl_phdr_info *program, size_t, void *found) {
    for (int i = 0; i < program->dlpi_phnum; i++) {
        const ElfW(Phdr) &segment = program->dlpi_phdr[i];
        const char *begin = reinterpret_cast<const char *>(program->dlpi_addr + segment.p_vaddr);
        if (segment.p_type == PT_NOTE && segment.p_align == 4)
            look_through(begin, begin + segment.p_memsz, *static_cast<Note *>(found));
    }
    return 1;
}

TEST(PackageNote, TellsNameAndVersion) {
    Note note{};
    dl_iterate_phdr(look_through_program, &note);
    ASSERT_EQ(note.count, 1);
    EXPECT_EQ(note.owner, std::string("FDO\0", 4));
    const std::string text = note.text.c_str(), begin = R"({"name":"veloagent","version":")";
    EXPECT_EQ(text.substr(0, begin.size()), begin);
    EXPECT_EQ(text.substr(text.size() - 2), "\"}");
    EXPECT_EQ(note.text.size(), whole_words(text.size() + 1));
}

}  // namespace
