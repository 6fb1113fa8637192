/* A program that a preload library cannot intercept. */
int main(void)
{
    return 0;
}
