// The table of contexts, which is the process's.
#include "core/contexts.h"

#include <new>
#include <utility>

#include "core/image_table.h"
#include "core/memory.h"

namespace tq {
namespace {

struct Table {
  platform::Lock lock;
  std::array<Context*, kMostContexts + 1> contexts{};  // by number; the first is not used
};
constinit Table table;

// Null when there is none.
Context* find(std::int32_t number) {
  const bool possible = number > 0 && number <= kMostContexts;
  return possible ? table.contexts[number] : nullptr;
}

void give_back(void* value) {
  const platform::Locked locked(table.lock);
  static_cast<Context*>(value)->taken = false;
}

// The library may be unloaded while the process goes on.
__attribute__((destructor)) void release_at_unload() {
  for (Context*& context : table.contexts) {
    if (context == nullptr) continue;
    context->texts.clear();
    release_kept_blocks(context->memory);
    platform::block_free(std::exchange(context, nullptr));
  }
  the_context.texts.clear();
  release_kept_blocks(the_context.memory);
}

}  // namespace

Status new_context() {
  const platform::Locked locked(table.lock);
  for (std::int32_t number = 1; number <= kMostContexts; ++number) {
    if (table.contexts[number] != nullptr) continue;
    void* const block = platform::block_alloc(sizeof(Context));
    if (block == nullptr) break;
    table.contexts[number] = new (block) Context;
    table.contexts[number]->number = number;
    return Status::from_raw(number);
  }
  return StatusCode::out_of_memory;
}

Status use_context(std::int32_t number) {
  Context& now = context();
  if (now.inside == platform::thread_token()) return StatusCode::unsupported;
  const platform::Locked locked(table.lock);
  Context* const wanted = find(number);
  if (wanted == nullptr && number != 0) return StatusCode::bad_handle;
  if (wanted == &now) return Status::from_raw(number);
  if (wanted != nullptr && wanted->taken) return StatusCode::unsupported;
  platform::at_thread_end(give_back);
  if (!platform::set_thread_value(wanted)) return StatusCode::out_of_memory;
  now.taken = false;
  if (wanted != nullptr) wanted->taken = true;
  return Status::from_raw(now.number);
}

Status delete_context(std::int32_t number) {
  Context* old = nullptr;
  {
    const platform::Locked locked(table.lock);
    old = find(number);
    if (old == nullptr) return StatusCode::bad_handle;
    if (old->taken) return StatusCode::unsupported;
    old->taken = true;
  }
  // Images are freed in their own context.
  void* const own = platform::thread_value();
  const bool entered = platform::set_thread_value(old);
  if (entered) {
    while (old->images.in_use > 0) (void)free_image_slot(ImageHandle{old->images.in_use - 1});
    old->texts.clear();
    release_kept_blocks(old->memory);
    platform::set_thread_value(own);
  }
  const platform::Locked locked(table.lock);
  old->taken = false;
  if (!entered) return StatusCode::out_of_memory;
  table.contexts[number] = nullptr;
  platform::block_free(old);
  return kOk;
}

}  // namespace tq
