// One page of memory that the product keeps at hand.
#include "demo.h"
#include "ostpool.h"

#include <linux/gfp.h>

MODULE_DESCRIPTION("Ostrel demo: a page kept at hand");

static unsigned long page;

unsigned long ostpool_page(void)
{
	return page;
}
EXPORT_SYMBOL(ostpool_page);

static int __init ostpool_init(void)
{
	page = __get_free_page(GFP_KERNEL);
	if (!page)
		return -ENOMEM;
	pr_info("ostpool: ready\n");
	return 0;
}

static void __exit ostpool_exit(void)
{
	free_page(page);
	pr_info("ostpool: gone\n");
}

module_init(ostpool_init);
module_exit(ostpool_exit);
