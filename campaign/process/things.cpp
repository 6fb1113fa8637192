// Arguments and results of the callers.
#include "calls.h"

#include <cstring>
#include <dlfcn.h>
#include <semaphore.h>
#include <sys/stat.h>

#include "client/client.h"
#include "dsp/osal_sections.h"

namespace campaign {

namespace {

void *g_library;
const char *g_image = "";

} // namespace

void *library()
{
    return g_library;
}

bool use_library(const char *library, const char *image)
{
    g_library = dlopen(library, RTLD_NOW);
    g_image = image;
    if (!g_library)
        fprintf(stderr, "campaign: %s\n", dlerror());
    return g_library;
}

void *found(const char *name)
{
    void *const symbol = dlsym(g_library, name);
    if (!symbol) {
        fprintf(stderr, "campaign: %s\n", dlerror());
        _exit(99);
    }
    return symbol;
}

const char *image()
{
    return g_image;
}

const uint8_t kPassword[32] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff,
                               0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff,
                               0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

Stream stream(const char *content)
{
    static thread_local char room[4096];
    return Stream(content ? fmemopen(const_cast<char *>(content), strlen(content), "r")
                          : fmemopen(room, sizeof room, "w"));
}

void put(const char *path, const char *content)
{
    FILE *const file = fopen(path, "we");
    if (!file || fputs(content, file) < 0 || fclose(file) != 0) {
        perror(path);
        _exit(98);
    }
}

void control(const char *line)
{
    try {
        vboard::Client().run(line);
    } catch (const vboard::ClientError &) {
        _exit(97); // this board lacks the model
    }
}

void free_sections()
{
    for (const char *const name : {ddal::dsp::kCppiSection, ddal::dsp::kQmssSection, ddal::dsp::kSaSection})
        sem_unlink(name);
}

uint32_t image_size()
{
    struct stat status {};
    stat(image(), &status);
    return static_cast<uint32_t>(status.st_size);
}

void *address(uint32_t value)
{
    return reinterpret_cast<void *>(static_cast<uintptr_t>(value));
}

bool is_success(Kind kind, long result)
{
    return kind == Kind::kCode      ? result == 0
           : kind == Kind::kPointer ? result != 0
                                    : kind != Kind::kResult || result >= 0;
}

} // namespace campaign
