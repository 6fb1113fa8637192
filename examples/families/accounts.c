/* Sets a new password of the service account and prints the reason of a refusal. */
#include <stdio.h>

#include <ddal/auth.h>
#include <ddal/error.h>

int main(void)
{
    char why[256];
    uint32_t state = DDAL_ROOT_ACCESS_UNRESTRICTED;
    const int result = ddal_auth_set_user_password("serviceuser", "Correct7horse+battery", why, sizeof why);

    if (result == DDAL_ERR_PASSWORD_REFUSED)
        printf("refused: %s\n", why);
    if (result != 0 || ddal_auth_get_restricted_root_access_state(&state) != 0)
        return 1;
    printf("password set, root access %s\n", state == DDAL_ROOT_ACCESS_RESTRICTED ? "restricted" : "not restricted");
    return 0;
}
