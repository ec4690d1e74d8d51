/** The JSON interface. */
package com.quorin.sysmgt.tavl.LumetraAgent.api;
