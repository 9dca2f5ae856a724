#include "thread_exit.hpp"

#include <pthread.h>

namespace tavik {
namespace {

pthread_key_t key;
pthread_once_t once = PTHREAD_ONCE_INIT;
bool key_created = false;

extern "C" void release_nodes(void *list)
{
    for (auto *node = static_cast<ThreadExit *>(list); node != nullptr;) {
        ThreadExit *next = node->next;
        node->registered = false;
        node->release();
        node = next;
    }
}

extern "C" void create_key()
{
    key_created = pthread_key_create(&key, release_nodes) == 0;
}

} // namespace

bool release_at_thread_exit(ThreadExit &node)
{
    if (node.registered) return true;
    pthread_once(&once, create_key);
    if (!key_created) return false;
    node.next = static_cast<ThreadExit *>(pthread_getspecific(key));
    node.registered = pthread_setspecific(key, &node) == 0;
    return node.registered;
}

void release_thread_state()
{
    pthread_once(&once, create_key);
    if (!key_created) return;
    void *list = pthread_getspecific(key);
    pthread_setspecific(key, nullptr);
    release_nodes(list);
}

} // namespace tavik
