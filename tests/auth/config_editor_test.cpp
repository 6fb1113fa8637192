// The editor of the SSH daemon's configuration, on streams: lines, the place of an option, failing streams.
#include "auth/sshd_config.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using ddal::auth::copy_replace_option;

namespace {

using Stream = std::unique_ptr<FILE, int (*)(FILE *)>;

Stream stream_with(const std::string &text)
{
    Stream stream{tmpfile(), fclose};
    fwrite(text.data(), 1, text.size(), stream.get());
    rewind(stream.get());
    return stream;
}

std::string content(FILE *stream)
{
    std::string text;
    rewind(stream);
    for (int c; (c = fgetc(stream)) != EOF;)
        text += static_cast<char>(c);
    return text;
}

struct Edited {
    int result;
    std::string text;
};

Edited edit(const char *user, const char *name, const char *value, const std::string &before)
{
    const Stream in = stream_with(before);
    const Stream out = stream_with("");
    const int result = copy_replace_option(user, name, value, in.get(), out.get());
    return {result, content(out.get())};
}

std::string repeat(const std::string &text, int count)
{
    std::string all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

struct EditCase {
    const char *what;
    const char *user;
    const char *name;
    const char *value;
    std::string before;
    std::string after;
};

const EditCase kEdits[] = {
    {"only the first of two is replaced, where it stood", nullptr, "ClientAliveInterval", "7",
     "Port 22\nClientAliveInterval 1\nUsePAM yes\nClientAliveInterval 2\n",
     "Port 22\nClientAliveInterval 7\nUsePAM yes\nClientAliveInterval 2\n"},
    {"case and indentation of the option do not matter", nullptr, "ClientAliveInterval", "7",
     " \tclientaliveinterval=1 # c\nPort 22\n", "ClientAliveInterval 7\nPort 22\n"},
    {"a comment is no option", nullptr, "Port", "1", "#Port 22\n# Port 23\n", "#Port 22\n# Port 23\nPort 1\n"},
    {"a new option goes before the first user block", nullptr, "AllowUsers", "a b",
     "Port 22\n\nMatch User x\n AllowUsers c\nmatch user y\n",
     "Port 22\n\nAllowUsers a b\nMatch User x\n AllowUsers c\nmatch user y\n"},
    {"a block of another kind and an indented one do not end the global part", nullptr, "Banner", "/b",
     "Match Group g\n Banner none\n", "Match Group g\nBanner /b\n"},
    {"without a value the option goes", nullptr, "Port", nullptr, "Port 1\nPort 2\n", "Port 2\n"},
    {"deleting what is not there changes nothing", nullptr, "Port", nullptr, "A b\n\n", "A b\n\n"},
    {"a last line without newline is not glued to the new one", nullptr, "Port", "1", "UsePAM yes",
     "UsePAM yes\nPort 1\n"},
    {"a replaced last line without newline", nullptr, "Port", "1", "A b\nPort 22", "A b\nPort 1\n"},
    {"what follows keeps its missing newline", nullptr, "Port", "1", "Port 22\nUsePAM yes", "Port 1\nUsePAM yes"},
    {"an empty file", nullptr, "Port", "1", "", "Port 1\n"},
    {"a NUL byte in a line", nullptr, "Port", "1", std::string("a\0b\nPort 22\n", 12),
     std::string("a\0b\nPort 1\n", 11)},
    {"line ends of another system", nullptr, "Port", "1", "UsePAM yes\r\nPort 22\r\n", "UsePAM yes\r\nPort 1\n"},

    {"an option of a block", "serviceuser", "X11Forwarding", "yes",
     "Port 22\nMatch User serviceuser\n X11Forwarding no\n Banner none\n",
     "Port 22\nMatch User serviceuser\n X11Forwarding yes\n Banner none\n"},
    {"a new option goes to the end of the block", "serviceuser", "X11Forwarding", "yes",
     "match  user\tServiceuser \n Banner none\nMatch User other\n X11Forwarding no\n",
     "Match User serviceuser\n Banner none\n X11Forwarding yes\nMatch User other\n X11Forwarding no\n"},
    {"a block of a longer name is another one", "serviceuser", "Zed", "b", "Match User serviceuser2\n Zed c\n",
     "Match User serviceuser2\n Zed c\nMatch User serviceuser\n Zed b\n"},
    {"a missing block is made at the end", "serviceuser", "Zed", "b", "Port 22\nUsePAM yes",
     "Port 22\nUsePAM yes\nMatch User serviceuser\n Zed b\n"},
    // kept: the search for the block ends at the first empty line
    {"a missing block begins before the first empty line", "serviceuser", "Zed", "b", "Port 22\n\nUsePAM yes\n",
     "Port 22\nMatch User serviceuser\n\nUsePAM yes\n Zed b\n"},
    {"an empty line hides a block behind it", "serviceuser", "Zed", "b", "\nMatch User serviceuser\n Zed c\n",
     "Match User serviceuser\n\n Zed b\nMatch User serviceuser\n Zed c\n"},
    {"a line of blanks is no empty line", "serviceuser", "Zed", "b", " \t\nMatch User serviceuser\n Zed c\n",
     " \t\nMatch User serviceuser\n Zed b\n"},
    // kept: inside a block the option's name counts anywhere in a line
    {"inside a block a comment is taken for the option", "serviceuser", "Banner", "/b",
     "Match User serviceuser\n # no Banner here\n Banner none\n", "Match User serviceuser\n Banner /b\n Banner none\n"},
    {"an option of a block goes", "serviceuser", "Zed", nullptr, "Match User serviceuser\n Zed c\n B d\n",
     "Match User serviceuser\n B d\n"},
    {"ten thousand lines", "serviceuser", "Needle", "yes",
     repeat("# hay\n", 10000) + "Match User serviceuser\n Needle no\n" + repeat(" # hay\n", 10000),
     repeat("# hay\n", 10000) + "Match User serviceuser\n Needle yes\n" + repeat(" # hay\n", 10000)},
};

TEST(ConfigEditor, PutsAnOptionInItsPlace)
{
    for (const EditCase &c : kEdits) {
        const Edited edited = edit(c.user, c.name, c.value, c.before);
        EXPECT_EQ(edited.result, 0) << c.what;
        EXPECT_EQ(edited.text, c.after) << c.what;
    }
}

TEST(ConfigEditor, RefusesTextsThatItCannotWriteSafely)
{
    const std::string fits(512 - strlen("^[[:space:]]*") - 1, 'n');
    const std::string too_long = fits + "n";
    const struct {
        const char *user, *name, *value;
        int result;
    } cases[] = {
        {nullptr, "Port", "22\nPermitRootLogin yes", -EINVAL},
        {nullptr, "Port 22\nPermitRootLogin", "yes", -EINVAL},
        {"x\nMatch User toor4qrx", "Banner", "none", -EINVAL},
        {"x", "Banner", "none\n", -EINVAL},
        {nullptr, too_long.c_str(), "1", -EINVAL},
        {too_long.c_str(), "Port", "1", -EINVAL},
        {nullptr, fits.c_str(), "1", 0},
        {nullptr, "(", "1", -ENOMEM},
        {"x", "[", "1", -ENOMEM},
    };
    const std::string before = "Match User x\nPort 1\n";
    for (const auto &c : cases) {
        const Edited edited = edit(c.user, c.name, c.value, before);
        EXPECT_EQ(edited.result, c.result) << c.name;
        EXPECT_EQ(edited.text.find("PermitRootLogin"), std::string::npos) << c.name;
        EXPECT_EQ(edited.text.find("toor4qrx"), std::string::npos) << c.name;
    }
}

// A stream over a text that fails with EIO after `limit` bytes read or written.
struct Failing {
    std::string text;
    size_t limit;
    size_t at = 0;

    static ssize_t read(void *self, char *buf, size_t n)
    {
        auto &s = *static_cast<Failing *>(self);
        if (s.at >= s.limit) {
            errno = EIO;
            return -1;
        }
        n = std::min(n, std::min(s.limit, s.text.size()) - s.at);
        memcpy(buf, s.text.data() + s.at, n);
        s.at += n;
        return static_cast<ssize_t>(n);
    }
    static ssize_t write(void *self, const char *buf, size_t n)
    {
        auto &s = *static_cast<Failing *>(self);
        if (s.text.size() + n > s.limit) {
            errno = EIO;
            return 0;
        }
        s.text.append(buf, n);
        return static_cast<ssize_t>(n);
    }
    static int seek(void *self, off64_t *offset, int whence)
    {
        auto &s = *static_cast<Failing *>(self);
        s.at = static_cast<size_t>(*offset) + (whence == SEEK_CUR ? s.at : 0);
        *offset = static_cast<off64_t>(s.at);
        return 0;
    }
    FILE *open(const char *mode)
    {
        FILE *stream = fopencookie(this, mode, {read, write, seek, nullptr});
        setvbuf(stream, nullptr, _IONBF, 0);
        return stream;
    }
};

TEST(ConfigEditor, AFailedStreamDoesNotLookLikeAnEnd)
{
    const std::string before = "Port 22\nMatch User serviceuser\n Zed c\n# rest\n";
    const std::string after = "Port 22\nMatch User serviceuser\n Zed b\n# rest\n";
    for (size_t limit = 0; limit <= after.size(); ++limit) {
        for (const bool reading : {true, false}) {
            Failing source{before, reading ? limit : SIZE_MAX};
            Failing target{"", reading ? SIZE_MAX : limit};
            const Stream in{source.open("r"), fclose};
            const Stream out{target.open("w"), fclose};
            const int result = copy_replace_option("serviceuser", "Zed", "b", in.get(), out.get());
            const bool failed = ferror(in.get()) || ferror(out.get());
            // kept: the streams' error flags alone report a failure after the option
            const bool option_done = target.text.find(" Zed b\n") != std::string::npos;
            EXPECT_EQ(result, failed && !option_done ? -EIO : 0) << limit << reading;
            EXPECT_EQ(failed, target.text != after) << limit << reading;
        }
    }
}

} // namespace
