// Hands out the product's links; the other modules stand on it.
#include "demo.h"
#include "ostlink.h"

#include <linux/atomic.h>

MODULE_DESCRIPTION("Ostrel demo: links between modules");

static atomic_t last_link = ATOMIC_INIT(0);
static atomic_t open_links = ATOMIC_INIT(0);

unsigned int ostlink_open(void)
{
	atomic_inc(&open_links);
	return (unsigned int)atomic_inc_return(&last_link);
}
EXPORT_SYMBOL(ostlink_open);

void ostlink_close(unsigned int link)
{
	const int left = atomic_dec_return(&open_links);

	pr_debug("ostlink: link %u closed, %d left\n", link, left);
}
EXPORT_SYMBOL(ostlink_close);

static int __init ostlink_init(void)
{
	pr_info("ostlink: ready\n");
	return 0;
}

static void __exit ostlink_exit(void)
{
	pr_info("ostlink: gone\n");
}

module_init(ostlink_init);
module_exit(ostlink_exit);
