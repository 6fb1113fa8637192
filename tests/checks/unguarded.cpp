// Does not compile where clang checks which mutex guards what: the build's warnings would be worthless otherwise.
#include "core/mutex_lock.h"

ddal::core::Mutex mutex;
int guarded DDAL_GUARDED_BY(mutex);

int read_without_the_mutex()
{
    return guarded;
}
