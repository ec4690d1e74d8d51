/** Who is told of an event: what is worth telling, and the program that is started for it. */
package com.quorin.sysmgt.tavl.LumetraAgent.tell;
