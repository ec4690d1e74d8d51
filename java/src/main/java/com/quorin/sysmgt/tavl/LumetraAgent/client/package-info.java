/** Commands that ask a running agent over its JSON interface. */
package com.quorin.sysmgt.tavl.LumetraAgent.client;
