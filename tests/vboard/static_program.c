/* A program that no preload library can stand in front of. */
int main(void)
{
    return 0;
}
