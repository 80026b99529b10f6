// Handlers of an application: none, one that it links, and one that comes later with a library.
#include "tests/product/rig.h"

namespace product_test {
namespace {

class Handlers : public Product {};

const char* const kProgram = R"(
#include <dlfcn.h>
#include <stdio.h>
#include <zarn_wlan/zarn_wlan.h>
static void line(void *argument, uint32_t level, const char *text) {
  (void)argument;
  if (level == KVT_LEVEL_NOTICE) puts(text);
}
static void expire(void) {
  int err = 0;
  kvt_handle *h = kvt_handle_open_private(NULL, &err);
  void *queue = wlan_timer_queue_init(h, 0, &err), *wlan = st_wlan_create(h, 0);
  st_wlan_ref_cleanup_timer_timer_set(h, 0, queue, wlan, 0, 0, 0, 0, NULL, &err);
  if (!wlan_timer_dispatch(h, 0, queue, NULL, NULL, &err) || err) puts("not dispatched");
  kvt_handle_close(h);
}
int main(int count, char **arguments) {
  fenlog_set_sink(line, NULL);
  expire();
  if (count > 1 && dlopen(arguments[1], RTLD_NOW | RTLD_GLOBAL)) expire();
  return 0;
}
)";
const char* const kHandler = R"(
#include <stdio.h>
#include <zarn_wlan/zarn_wlan.h>
int32_t st_wlan_ref_cleanup_timer_timer_callback(kvt_handle *h, void *queue, void *owner, int32_t *deleted,
                                                 int32_t *to_abort, int *err) {
  (void)h, (void)queue, (void)owner, (void)deleted, (void)to_abort, (void)err;
  puts("handled");
  return 0;
}
)";

TEST_F(Handlers, AreFoundWheneverTheyCome) {
  spill(dir / "program.c", kProgram);
  spill(dir / "handler.c", kHandler);
  const std::string with =
      kCCompiler + "-Wall -Wextra -Werror -I'" + kSource + "/include' -I'" + kBuild + "/generated/include' ";
  const std::string libraries = " -L'" + kBuild + "' -L'" + kBuild + "/platform' -lzarn_wlan -lkvt -Wl,-rpath,'" +
                                kBuild + "':'" + kBuild + "/platform' ";
  done(with + "-fPIC -shared handler.c -o handler.so");
  done(with + "program.c -o without" + libraries + "&& " + with + "program.c handler.c -o linked" + libraries);
  const std::string none = "default timer callback handler st_wlan_ref_cleanup_timer called\n";
  EXPECT_EQ(done("./without"), none);
  EXPECT_EQ(done("./without ./handler.so"), none + "handled\n");
  EXPECT_EQ(done("./linked"), "handled\n");
}

}  // namespace
}  // namespace product_test
