// Replaces the board's tool for encrypted partitions: no partition is encrypted, every other command succeeds.
#include <cstring>

int main(int argc, char **argv)
{
    return argc > 1 && strcmp(argv[1], "is_luks_formatted") == 0 ? 1 : 0;
}
