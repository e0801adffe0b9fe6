// One page of memory that the product keeps at hand.
#include "demo.h"

#include <linux/gfp.h>

MODULE_DESCRIPTION("Ostrel demo: a page kept at hand");

static unsigned long page;

static int __init ostpool_init(void)
{
	page = __get_free_page(GFP_KERNEL);
	return page ? 0 : -ENOMEM;
}

static void __exit ostpool_exit(void)
{
	free_page(page);
}

module_init(ostpool_init);
module_exit(ostpool_exit);
