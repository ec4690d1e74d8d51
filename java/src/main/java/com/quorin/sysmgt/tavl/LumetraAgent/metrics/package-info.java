/** What a monitoring system asks for. */
package com.quorin.sysmgt.tavl.LumetraAgent.metrics;
